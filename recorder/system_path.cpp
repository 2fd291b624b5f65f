// The system track's side of the recording: converted IOProc buffers arrive
// here and are appended on the system write queue.
#include "recorder/mic_buffers.h"
#include "recorder/recorder_state.h"
#include "support/log.h"

namespace ac {

bool Recorder::Impl::hasSystemInput() const { return systemInput != nullptr; }

void Recorder::Impl::enqueueSystemSample(platform::MediaTime hostPTS, platform::SampleBuffer&& sample) {
  writeQueueSystem->async([weak = weak_from_this(), hostPTS, sample = std::move(sample)] {
    if (auto self = weak.lock()) self->appendSystemSample(hostPTS, sample);
  });
}

void Recorder::Impl::notifyAppendFailureOnceOnSystemQueue(std::string reason, std::string advice) {
  writeQueueSystem->async([weak = weak_from_this(), reason = std::move(reason), advice = std::move(advice)] {
    if (auto self = weak.lock()) self->notices.notifyAppendFailureOnce(reason, advice);
  });
}

void Recorder::Impl::appendSystemSample(platform::MediaTime hostPTS, const platform::SampleBuffer& sample) {
  if (!systemInput) return;
  if (!systemInput->isReadyForMoreMediaData()) return;
  std::optional<platform::SampleBuffer> retimed = retime(sample, anchoredPTS(hostPTS));
  if (!retimed) return;
  if (systemInput->append(*retimed)) {
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
