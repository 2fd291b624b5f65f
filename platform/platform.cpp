#include "platform/platform.h"

#include <cstdlib>

#include "support/dispatch.h"

namespace ac::platform {
namespace {
Platform* gCurrent = nullptr;
}

void Platform::runMainLoopFor(double seconds) { runMainQueueFor(seconds); }

Platform& current() {
  if (!gCurrent) std::abort();  // the entry sets it before any mode runs
  return *gCurrent;
}

void setCurrent(Platform* platform) { gCurrent = platform; }

}  // namespace ac::platform
