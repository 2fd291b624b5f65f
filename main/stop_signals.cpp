#include "main/stop_signals.h"

#include <pthread.h>
#include <signal.h>

#include <initializer_list>

namespace ac::entry {
namespace {

sigset_t stopSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (int s : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&set, s);
  return set;
}

// Runs in the child of any fork (libraries may fork and exec helpers): the
// program it runs starts with the signals as a fresh process has them.
extern "C" void cleanChildSignals() {
  sigset_t set = stopSignals();
  ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  ::signal(SIGPIPE, SIG_DFL);
}

void registerChildReset() {
  static bool registered = (::pthread_atfork(nullptr, nullptr, cleanChildSignals) == 0);
  (void)registered;
}

// Runs before any library initializer (and so before any thread exists):
// plain system calls only, the C++ runtime is not set up yet.
void holdStopSignalsEarly(int, char**, char**) {
  sigset_t set = stopSignals();
  ::sigprocmask(SIG_BLOCK, &set, nullptr);
}

}  // namespace

#if defined(__ELF__)
[[gnu::section(".preinit_array"), gnu::used]] void (*const holdStopSignalsAtLoad)(int, char**, char**) =
    holdStopSignalsEarly;
#endif

void ignoreBrokenPipes() {
  ::signal(SIGPIPE, SIG_IGN);
  registerChildReset();
}

void releaseUnlessRecording(bool recording) {
  registerChildReset();
  if (!recording) {
    releaseStopSignals();
    return;
  }
  // Already held where the loader ran the pre-initializer; elsewhere this is
  // the earliest point, still before any thread of ours exists.
  holdStopSignalsEarly(0, nullptr, nullptr);
}

bool stopSignalPending() {
  sigset_t pending;
  sigemptyset(&pending);
  if (::sigpending(&pending) != 0) return false;
  for (int s : {SIGTERM, SIGINT, SIGHUP})
    if (sigismember(&pending, s) == 1) return true;
  return false;
}

void releaseStopSignals() {
  sigset_t set = stopSignals();
  ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

}  // namespace ac::entry
