// Ending a recording: everything torn down in a fixed order, both tracks
// finished behind their own queues, the statistics line, and finalization.
#include <unistd.h>

#include <atomic>

#include "recorder/recorder_state.h"
#include "support/log.h"
#include "support/paths.h"

namespace ac {

namespace {

// Runs `whenDone` once the last of `count` parties has left.
struct FinishGroup {
  explicit FinishGroup(int count, Block done) : remaining(count), whenDone(std::move(done)) {}
  void leave() {
    if (remaining.fetch_sub(1, std::memory_order_acq_rel) == 1) whenDone();
  }
  std::atomic<int> remaining;
  Block whenDone;
};

// Guarantees the caller's completion runs once, whatever a backend does.
Block once(std::function<void()> completion) {
  auto called = std::make_shared<std::atomic<bool>>(false);
  return [called, completion = std::move(completion)] {
    if (!called->exchange(true) && completion) completion();
  };
}

void reportFinish(Recorder::Impl& self, const Block& completion) {
  platform::AssetWriter& writer = *self.assetWriter;
  const platform::WriterStatus status = writer.status();
  const std::string statusText = std::to_string(static_cast<int>(status));
  const std::string file = lastPathComponent(self.outputPath);
  const std::string pid = std::to_string(::getpid());
  if (status == platform::WriterStatus::completed) {
    log("writer done status=" + statusText);
    log("finalize-ok " + file + " pid=" + pid + ".");
  } else {
    const std::optional<Error> error = writer.error();
    log("writer failed: status=" + statusText + " " + (error ? error->description : std::string("?")));
    self.notices.notifyAppendFailureOnce(self.currentAppendFailureReason(), diskFullAdvice);
    log("finalize-failed " + file + " pid=" + pid + ".");
  }
  completion();
}

void finalize(const std::weak_ptr<Recorder::Impl>& weak, const Block& completion) {
  auto self = weak.lock();
  if (!self || !self->assetWriter) {
    completion();
    return;
  }
  log(statsLine(self->stats()));
  log("finalizing");
  self->assetWriter->finishWriting([weak, completion] {
    // Off the writer's own thread: the last reference may go here.
    dispatchGlobal([weak, completion] {
      if (auto impl = weak.lock())
        reportFinish(*impl, completion);
      else
        completion();
    });
  });
}

}  // namespace

void Recorder::Impl::stop(std::function<void()> completionArg) {
  if (stopped.exchange(true)) return;
  log("stopping");
  const Block completion = once(std::move(completionArg));

  if (systemCapture) systemCapture->removeListeners();
  auto removeMicObservers = [this] {
    std::lock_guard<std::mutex> lock(micRebuildLock);
    removeMicDisconnectObservers();
  };
  // The system chain's rebuild lock is taken first, so no repair of either
  // kind overlaps what follows.
  if (systemCapture)
    systemCapture->markStopped(removeMicObservers);
  else
    removeMicObservers();
  if (systemCapture) systemCapture->teardown();

  if (captureSession) {
    log("teardown: stopping mic session");
    captureSession->stopRunning();
    log("teardown: mic session stopped");
  }

  // Each finish is queued behind its track's appends, so every buffer
  // already handed over is written first.
  std::weak_ptr<Impl> weak = weak_from_this();
  Block whenDone = [weak, completion] { dispatchGlobal([weak, completion] { finalize(weak, completion); }); };
  const int parties = (systemInput ? 1 : 0) + (micInput ? 1 : 0);
  if (parties == 0) {
    whenDone();
    return;
  }
  auto group = std::make_shared<FinishGroup>(parties, std::move(whenDone));
  auto finishOn = [&](SerialQueue& queue, std::shared_ptr<platform::WriterInput> Impl::*input) {
    queue.async([weak, group, input] {
      if (auto self = weak.lock())
        if (auto& in = (*self).*input) in->markAsFinished();
      group->leave();
    });
  };
  if (systemInput) finishOn(*writeQueueSystem, &Impl::systemInput);
  if (micInput) finishOn(*writeQueueMic, &Impl::micInput);
}

RecordingStats Recorder::Impl::stats() const {
  RecordingStats s;
  if (systemCapture) {
    const capture::SystemCaptureStats sys = systemCapture->stats();
    s.ioProcCalls = sys.ioProcCalls;
    s.sysMaxAbs = sys.maxSampleAbs;
    s.sysDataFail = sys.dataFailures;
    s.sysFmtRate = sys.format.sampleRate;
    s.sysFmtCh = sys.format.channelsPerFrame;
    s.sysFmtChanges = sys.formatChanges;
    s.sysTapBufIndex = sys.tapBufferIndex;
    s.sysTapBufCount = sys.tapBufferCount;
  }
  s.sysAppended = systemSamplesAppended;
  s.sysFail = systemAppendFailures;
  s.micAppended = micSamplesAppended;
  s.micFail = micAppendFailures;
  s.micMaxAbs = micMaxSampleAbs;
  s.micEndedEarly = micEndedEarly;
  s.sysAacRate = systemAacRate;
  s.sysAacClamped = systemAacClamped;
  if (micFormatDescription) {
    s.micFmtRate = micFormatDescription->asbd.sampleRate;
    s.micFmtCh = micFormatDescription->asbd.channelsPerFrame;
  }
  s.micFmtChanges = micFormatChanges;
  return s;
}

}  // namespace ac
