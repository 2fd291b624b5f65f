// The armed quick-note launch: every device is open; wait on the go pipe for
// one word, answer on the status pipe. Four parties may end the launch — the
// main thread, the signal queue, the input watch and the owner watch — and
// ArmedPhase makes exactly one of them win.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <initializer_list>
#include <thread>

#include "cli/armed_gate.h"
#include "main/recording_process.h"
#include "main/stop_signals.h"
#include "platform/platform.h"
#include "support/log.h"
#include "support/paths.h"
#include "support/process_exit.h"

namespace ac::entry {
namespace {

std::string errnoSuffix(int err) { return " (errno=" + std::to_string(err) + ")"; }

[[noreturn]] void parkForever(RecordingProcess& p) {
  for (;;) p.armedLoserPark.wait();
}

// A release is not a failure for the owner: it asked for it, or caused it.
[[noreturn]] void releaseArmed(RecordingProcess& p, const std::string& reason) {
  log("armed: released (" + reason + ")");
  p.recorder->discardArmed();
  (void)ArmedGate::writeStatusLine(ArmedGate::releasedLine(reason));
  exitProcess(0);
}

[[noreturn]] void releaseFromMain(RecordingProcess& p, const std::string& reason) {
  if (p.armedPhase.tryBeginRelease()) releaseArmed(p, reason);
  parkForever(p);  // another party already owns the end of the process
}

[[noreturn]] void abortArmedLaunch(RecordingProcess& p, const std::string& message) {
  log("armed: " + message + " — refusing to arm");
  p.recorder->discardArmed();
  exitProcess(74);
}

void armedSignalHandler(RecordingProcess& p) {
  switch (p.armedPhase.signalAction()) {
    case ArmedPhase::SignalAction::release:
      releaseArmed(p, ArmedGate::reasonSigterm);  // SIGINT too
    case ArmedPhase::SignalAction::deferUntilRunning:
      log("signal received during start — honoured once running");
      return;
    case ArmedPhase::SignalAction::stopNow:
      p.finalizeHandler();
      return;
    case ArmedPhase::SignalAction::ignore:
      return;
  }
}

int openStatusPipe(RecordingProcess& p, const std::string& path) {
  int fd = ::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) {
    int err = errno;
    if (err == ENXIO) {
      log("armed: status pipe has no reader — owner gone");
      releaseFromMain(p, ArmedGate::reasonEOF);
    }
    abortArmedLaunch(p, "cannot open the status path " + path + errnoSuffix(err));
  }
  return fd;
}

// Opened non-blocking only so the open never waits for a writer; reads block.
int openGoPipe(RecordingProcess& p, const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) abortArmedLaunch(p, "cannot open the go path " + path + errnoSuffix(errno));
  ArmedGate::requireFIFO(fd, path, "go", [&p] { p.recorder->discardArmed(); });
  int flags = ::fcntl(fd, F_GETFL);
  if (flags < 0) abortArmedLaunch(p, "cannot read the go pipe's flags" + errnoSuffix(errno));
  if (::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) < 0)
    abortArmedLaunch(p, "cannot make the go pipe blocking" + errnoSuffix(errno));
  return fd;
}

// After go: the owner closing its end of the go pipe ends the recording.
void startOwnerWatch(RecordingProcess& p, int goFD) {
  std::thread([&p, goFD] {
    setCurrentThreadName("audio-capture.armed-owner-watch");
    while (ArmedGate::readLine(goFD)) {
    }
    log("armed: owner gone after go — finalizing");
    // Started after go won the phase, so it is starting (the stop is deferred
    // until markRunning) or running: never armed, never releasing.
    if (p.armedPhase.signalAction() == ArmedPhase::SignalAction::stopNow) p.q->async(p.finalizeHandler);
  }).detach();
}

}  // namespace

void runArmedSequence(RecordingProcess& p) {
  const std::string statusPath = expandTilde(*p.args.statusFIFOPath);
  const std::string goPath = expandTilde(*p.args.goFIFOPath);
  const std::string pid = std::to_string(::getpid());

  // SIGHUP too: a closed terminal releases an armed launch like SIGTERM.
  p.s1 = std::make_unique<SignalSource>(SIGTERM, *p.q, [&p] { armedSignalHandler(p); });
  p.s2 = std::make_unique<SignalSource>(SIGINT, *p.q, [&p] { armedSignalHandler(p); });
  p.s3 = std::make_unique<SignalSource>(SIGHUP, *p.q, [&p] { armedSignalHandler(p); });
  for (int s : {SIGTERM, SIGINT, SIGHUP}) ignoreDefaultDelivery(s);
  releaseStopSignals();  // one held since launch now releases the armed launch

  int statusFD = openStatusPipe(p, statusPath);
  ArmedGate::setStatusFD(statusFD);
  ArmedGate::requireFIFO(statusFD, statusPath, "status", [&p] { p.recorder->discardArmed(); });
  int goFD = openGoPipe(p, goPath);

  bool watching = p.recorder->installArmedInputWatch([&p](const std::string& reason) {
    if (p.armedPhase.tryBeginRelease()) releaseArmed(p, reason);
    // Otherwise the phase has moved on; a change after go is recovery's business.
  });
  if (!watching) releaseFromMain(p, ArmedGate::reasonStartFailed);
  // Keeps an idle process waiting for go from being throttled where the
  // platform does that (a no-op elsewhere).
  uint64_t activity = platform::current().beginActivity("armed quick-note recorder awaiting go");

  (void)ArmedGate::writeStatusLine(ArmedGate::armedLine(::getpid()));
  log("armed, pid=" + pid);

  std::optional<std::string> line = ArmedGate::readLine(goFD);
  if (!line) releaseFromMain(p, ArmedGate::reasonEOF);
  ArmedGate::Decision decision = ArmedGate::decide(*line);
  if (decision.kind == ArmedGate::Decision::Kind::release) releaseFromMain(p, decision.reason);

  if (auto stale = p.recorder->armedDeviceStaleReason()) {
    log("armed: bound input no longer valid at go (" + *stale + ")");
    releaseFromMain(p, *stale);
  }
  if (!p.armedPhase.tryBeginStart()) parkForever(p);

  platform::current().endActivity(activity);
  p.recorder->removeArmedInputWatch();
  startOwnerWatch(p, goFD);
  try {
    p.recorder->start();
  } catch (const std::exception& e) {
    log(std::string("armed: start after go failed: ") + e.what());
    p.recorder->discardArmed();
    (void)ArmedGate::writeStatusLine(ArmedGate::releasedLine(ArmedGate::reasonStartFailed));
    exitProcess(0);
  }

  if (!ArmedGate::writeStatusLine(ArmedGate::readyLine(::getpid())))
    log("armed: could not write ready — owner may be gone; the go-pipe watch will finalize on EOF");
  ArmedGate::setStatusFD(-1);
  ::close(statusFD);
  if (p.armedPhase.markRunning()) p.q->async(p.finalizeHandler);
}

}  // namespace ac::entry
