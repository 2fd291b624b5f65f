// Placeholder entry until mode dispatch lands.
#include <cstdio>

int main() {
  std::fputs("audio-capture: not built yet\n", stderr);
  return 1;
}
