// The recording mode: start-up in a fixed order, then the main thread pumps
// the run loop until the stop completion signals it.
#include <signal.h>
#include <unistd.h>

#include <initializer_list>
#include <variant>

#include "cli/capture_lock.h"
#include "main/modes.h"
#include "main/recording_process.h"
#include "main/stop_signals.h"
#include "notify/notify_modes.h"
#include "platform/platform.h"
#include "recorder/level_file.h"
#include "support/log.h"
#include "support/paths.h"
#include "support/process_exit.h"

namespace ac::entry {
namespace {

constexpr double stopWaitSlice = 0.2;
constexpr double levelFileInterval = 0.05;

Args parseOrExit(const std::vector<std::string>& argv) {
  ParsedArgs parsed = parseArgs(argv);
  if (std::holds_alternative<UsageRequest>(parsed)) {
    std::fputs(usageText().c_str(), stdout);
    exitProcess(0);
  }
  if (auto* err = std::get_if<ArgsError>(&parsed)) {
    log(err->message);
    exitProcess(err->status);
  }
  return std::get<Args>(parsed);
}

std::string pidText() { return std::to_string(::getpid()); }

int authStatus(platform::MicCapture& mic) { return static_cast<int>(mic.authorizationStatus()); }

// Blocks until the user answered a first-time microphone prompt; exits 5
// unless the microphone ends up authorized.
void requireMicAuthorization(platform::MicCapture& mic) {
  if (mic.authorizationStatus() == platform::MicAuthorization::notDetermined) {
    log("requesting mic access (TCC prompt)…");
    Semaphore answered;
    mic.requestAccess([&answered](bool) { answered.signal(); });
    answered.wait();
  }
  int status = authStatus(mic);
  log("mic status post-request: " + std::to_string(status));
  if (status != static_cast<int>(platform::MicAuthorization::authorized)) {
    log("mic not authorized — set --no-mic or grant Microphone permission");
    exitProcess(5);
  }
}

void attachLevelFile(RecordingProcess& p) {
  const std::string& path = *p.args.levelPath;
  if (auto file = MicLevelFile::open(path, levelFileInterval)) {
    p.recorder->setLevelFile(std::move(file));
    log("level file: publishing mic level to " + path);
  } else {
    log("level file: could not open " + path + " — continuing without a live level");
  }
}

// A failed set-up or start removes only the output this launch created.
template <class F>
void orExitOnCaptureFailure(RecordingProcess& p, F step) {
  try {
    step();
  } catch (const std::exception& e) {
    log(std::string("setup/start failed: ") + e.what());
    p.recorder->discardUnstarted();
    exitProcess(1);
  }
}

// A stop signal held since launch is delivered here, to the handler that
// finalizes the file. SIGHUP (the terminal closed) ends a call like SIGTERM.
void installStopSignals(RecordingProcess& p) {
  for (int s : {SIGTERM, SIGINT, SIGHUP}) ignoreDefaultDelivery(s);
  if (!p.s1) {  // the armed sequence installed its own handlers
    p.s1 = std::make_unique<SignalSource>(SIGTERM, *p.q, p.finalizeHandler);
    p.s2 = std::make_unique<SignalSource>(SIGINT, *p.q, p.finalizeHandler);
    p.s3 = std::make_unique<SignalSource>(SIGHUP, *p.q, p.finalizeHandler);
  }
  releaseStopSignals();
}

// A notice is best effort: nothing on the notify side may end the recording.
void postNoticeBestEffort(const std::string& title, const std::string& body, const std::string& sound) {
  try {
    notify::postNotification(title, body, sound);
  } catch (const std::exception& e) {
    writeStderr(std::string("notify: notice not posted: ") + e.what() + "\n");
  } catch (...) {
    writeStderr("notify: notice not posted\n");
  }
}

// Banner clicks during the recording reach the delegate through the main
// loop that the recording pumps while it waits to stop.
void enableClickRouting() {
  if (platform::current().workspace().bundleIdentifier())
    notify::installRecordingNotifyDelegate();
  else
    log("notify: unbundled process — click routing disabled for this capture");
}

}  // namespace

RecordingProcess& recordingProcess() {
  static RecordingProcess* process = new RecordingProcess();  // deliberately never destroyed
  return *process;
}

void runRecordingMode(const std::vector<std::string>& argv) {
  RecordingProcess& p = recordingProcess();
  p.args = parseOrExit(argv);
  const Args& args = p.args;
  p.outPath = expandTilde(args.output);
  if (args.logPath) openLogFile(expandTilde(*args.logPath));
  log("starting capture → " + p.outPath);

  platform::Platform& plat = platform::current();
  log("auth: mic=" + std::to_string(authStatus(plat.mic())));

  if (args.lockPath) {
    CaptureLockAcquisition lock = acquireCaptureLock(expandTilde(*args.lockPath));
    log(lock.logLine);
    if (lock.exitStatus != 0) exitProcess(lock.exitStatus);
    p.captureLockFD = lock.fd;
  }
  // After the lock, so a pid file never names a process that lost the race.
  if (args.pidPath) (void)writePidFile(expandTilde(*args.pidPath), ::getpid());
  if (args.includeMic) requireMicAuthorization(plat.mic());

  p.recorder = std::make_unique<Recorder>(
      plat, p.outPath, args.includeSystem, args.includeMic, args.micUID,
      postNoticeBestEffort);
  if (args.includeMic && args.levelPath) attachLevelFile(p);

  p.q = std::make_unique<SerialQueue>("audio-capture.signal");
  p.finalizeHandler = [&p] {
    log("signal received");
    p.recorder->stop([&p] { p.stopSem.signal(); });
  };

  // Set-up is about to create the output: a stop asked for before then ends
  // the launch with nothing created.
  if (stopSignalPending()) {
    log("signal received before set-up — exiting without recording");
    exitProcess(0);
  }
  orExitOnCaptureFailure(p, [&] { p.recorder->setup(); });
  if (args.armed && args.goFIFOPath && args.statusFIFOPath)
    runArmedSequence(p);
  else
    orExitOnCaptureFailure(p, [&] { p.recorder->start(); });

  emit("pid=" + pidText());
  log("ready, pid=" + pidText());
  installStopSignals(p);
  enableClickRouting();

  while (!p.stopSem.wait(stopWaitSlice)) plat.runMainLoopFor(stopWaitSlice);
  log("exit");
  exitProcess(0);
}

}  // namespace ac::entry
