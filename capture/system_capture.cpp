#include "capture/system_capture.h"

#include "capture/output_device.h"
#include "capture/output_recovery.h"
#include "capture/process_tap.h"
#include "capture/system_capture_state.h"
#include "capture/system_ioproc.h"
#include "capture/tap_topology.h"
#include "support/error.h"
#include "support/log.h"

#if defined(__SANITIZE_ADDRESS__)
#define AC_HAS_LSAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define AC_HAS_LSAN 1
#endif
#endif
#ifdef AC_HAS_LSAN
#include <sanitizer/lsan_interface.h>
#endif

namespace ac::capture {

namespace {
// The scratch list is leaked on purpose when a callback may still use it;
// the leak checker is told so.
void leakDeliberately(platform::OwnedBufferList* list) {
#ifdef AC_HAS_LSAN
  __lsan_ignore_object(list);
  __lsan_ignore_object(list->get());
#else
  (void)list;
#endif
}
}  // namespace

using std::to_string;

SystemCapture::State::State(platform::AudioHardware& hardware, SystemSampleSink& owner, PostNotification poster)
    : hw(hardware), sink(owner), post(std::move(poster)),
      deviceWatchQueue(std::make_unique<SerialQueue>(kDeviceWatchQueueLabel)) {}

SystemCapture::SystemCapture(platform::AudioHardware& hw, SystemSampleSink& sink, PostNotification post)
    : state_(std::make_shared<State>(hw, sink, std::move(post))) {
  state_->self = state_;
}

SystemCapture::~SystemCapture() {
  bool holdsObjects;
  {
    std::lock_guard lock(state_->rebuildLock);
    holdsObjects = state_->tapID || state_->aggID || state_->ioProcID;
  }
  if (holdsObjects)
    teardown();
  else
    removeListeners();
}

void SystemCapture::setup() {
  State& s = *state_;
  std::lock_guard lock(s.rebuildLock);
  s.included = true;
  s.hw.hostTimebase(s.timebaseNumer, s.timebaseDenom);

  ProcessTap tap = createProcessTap(s.hw);
  s.tapID = tap.tapID;
  s.tapUID = tap.uid;
  s.systemFormat = tap.format;
  log("process tap created id=" + to_string(tap.tapID) + " uid=" + tap.uid);
  try {
    std::string outputUID = defaultOutputDeviceUID(s.hw);
    s.aggID = createAggregate(s.hw, tap.uid, outputUID);
    s.currentOutputUID = outputUID;
  } catch (const CaptureError&) {
    s.hw.destroyProcessTap(s.tapID);
    s.tapID = 0;
    s.tapUID.reset();
    throw;
  }
  log("aggregate created id=" + to_string(s.aggID));
  log("aggregate clock master=" + *s.currentOutputUID);
  refreshTapTopology(s, "setup", std::nullopt, false, s.aggID, s.currentOutputUID);
}

platform::StreamFormat SystemCapture::systemFormat() const {
  std::lock_guard lock(state_->rebuildLock);
  return state_->systemFormat;
}

void SystemCapture::start() {
  State& s = *state_;
  std::lock_guard lock(s.rebuildLock);
  s.started = true;
  platform::IOProcID proc = 0;
  platform::OSStatus st = createSystemIOProc(s, s.aggID, proc);
  if (st != 0 || proc == 0) throw CaptureError(st, "AudioDeviceCreateIOProcIDWithBlock failed");
  // Stored before starting so that teardown stops and destroys it even when
  // the start fails.
  s.ioProcID = proc;
  st = s.hw.startDevice(s.aggID, proc);
  if (st != 0) throw CaptureError(st, "AudioDeviceStart failed");
  log("system IOProc started");
}

void SystemCapture::installListeners() {
  installDefaultOutputListener(*state_);
  installTapFormatListener(*state_);
}

void SystemCapture::removeListeners() {
  removeDefaultOutputListener(*state_);
  removeTapFormatListener(*state_);
}

void SystemCapture::markStopped(const std::function<void()>& whileLocked) {
  std::lock_guard lock(state_->rebuildLock);
  state_->stopped = true;
  if (whileLocked) whileLocked();
}

void SystemCapture::teardown() {
  State& s = *state_;
  removeListeners();
  std::lock_guard lock(s.rebuildLock);
  s.stopped = true;

  bool quiesced = true;
  if (s.ioProcID != 0) {
    log("teardown: stopping sys device");
    const platform::OSStatus stopStatus = s.hw.stopDevice(s.aggID, s.ioProcID);
    log("teardown: destroying ioproc");
    const platform::OSStatus destroyStatus = s.hw.destroyIOProc(s.aggID, s.ioProcID);
    quiesced = stopStatus == 0 || destroyStatus == 0;
    if (!quiesced)
      log("teardown: AudioDeviceStop=" + to_string(stopStatus) + " AudioDeviceDestroyIOProcID=" +
          to_string(destroyStatus) + " \u2014 cannot prove the system IOProc is quiesced");
    s.ioProcID = 0;
  }
  if (s.aggID != 0) {
    log("teardown: destroying aggregate");
    if (platform::OSStatus st = s.hw.destroyAggregateDevice(s.aggID))
      log("teardown: AudioHardwareDestroyAggregateDevice returned " + to_string(st));
    s.aggID = 0;
  }
  if (s.tapID != 0) {
    log("teardown: destroying tap");
    if (platform::OSStatus st = s.hw.destroyProcessTap(s.tapID))
      log("teardown: AudioHardwareDestroyProcessTap returned " + to_string(st));
    s.tapID = 0;
  }
  if (s.tapScratch && !quiesced) {
    // A callback that may still run could be copying descriptors into it.
    log("teardown: leaking the tap scratch buffer list \u2014 the IOProc could not be proven quiesced");
    leakDeliberately(s.tapScratch.release());
  }
  s.tapScratch.reset();
}

void SystemCapture::drainCallbacks() { drainSystemPeriods(*state_); }

SystemCaptureStats SystemCapture::stats() const {
  const State& s = *state_;
  std::lock_guard lock(state_->rebuildLock);
  SystemCaptureStats out;
  out.ioProcCalls = s.ioProcCalls.load();
  out.dataFailures = s.dataFailures.load();
  out.format = s.systemFormat;
  out.formatChanges = s.systemFormatChanges.load();
  out.tapBufferIndex = s.tapBufferIndex;
  out.tapBufferCount = s.tapBufferCount;
  out.maxSampleAbs = s.maxSampleAbs.load();
  return out;
}

}  // namespace ac::capture
