#include "support/process_exit.h"

#include <unistd.h>

#include <cstdio>

namespace ac {

void exitProcess(int status) {
  std::fflush(stdout);
  std::fflush(stderr);
  ::_exit(status);
}

}  // namespace ac
