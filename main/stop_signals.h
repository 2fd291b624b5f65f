// The signals that end a recording, held pending from the first instruction
// of a recording launch until the handlers that finalize the file exist, so
// no SIGTERM, SIGINT or SIGHUP can kill the process with the default action
// in between and leave a header-only file behind.
//
// Threads started while the signals are held keep them blocked for life; a
// held signal is delivered to the main thread once it releases them. Child
// processes never inherit the hold (nor the ignored SIGPIPE): spawnProcess
// resets both, and a fork by any library resets them in the child.
#pragma once

namespace ac::entry {

// SIGPIPE ignored for the whole process, in every mode: a write to a pipe
// whose reader has gone fails with EPIPE, which every writer ignores.
void ignoreBrokenPipes();

// SIGTERM, SIGINT and SIGHUP are held from before the libraries initialize
// (an ELF pre-initializer, the earliest code a program runs; a signal during
// the dynamic loader's work before it still has the default action, but then
// no file exists yet). Without ELF they are held from here. A launch that is
// not a recording lets them go at once.
void releaseUnlessRecording(bool recording);

// True when one of the held signals has arrived and waits for delivery.
bool stopSignalPending();

// Unblocks them in the calling thread: anything pending is delivered now, to
// whatever handles it by then.
void releaseStopSignals();

}  // namespace ac::entry
