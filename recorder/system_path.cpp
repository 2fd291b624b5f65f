// The system track's side of the recording: the IOProc leaves converted
// periods in the system chain's ring and signals the system write queue,
// which drains them into appends here.
#include "recorder/mic_buffers.h"
#include "recorder/recorder_state.h"
#include "support/log.h"

namespace ac {

bool Recorder::Impl::hasSystemInput() const { return systemInput != nullptr; }

void Recorder::Impl::systemPeriodsReady() { systemPeriodsSignal->signal(); }

void Recorder::Impl::notifyAppendFailureOnce(const std::string& reason, const std::string& advice) {
  notices.notifyAppendFailureOnce(reason, advice);
}

void Recorder::Impl::appendSystemSample(platform::MediaTime hostPTS, platform::SampleBuffer& sample) {
  if (!systemInput) return;
  if (!systemInput->isReadyForMoreMediaData()) return;
  if (!retime(sample, anchoredPTS(hostPTS))) return;
  if (systemInput->append(sample)) {
    ++systemSamplesAppended;
    return;
  }
  ++systemAppendFailures;
  const std::optional<Error> error = assetWriter ? assetWriter->error() : std::nullopt;
  log("system append failed: " + (error ? error->description : std::string("?")));
  if (systemAppendFailures == appendFailureNoticeCount)
    notices.notifyAppendFailureOnce(currentAppendFailureReason(), diskFullAdvice);
}

}  // namespace ac
