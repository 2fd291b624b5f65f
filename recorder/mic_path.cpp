// The microphone track: choosing the device, building the capture session,
// and the per-buffer path on the mic write queue.
#include "recorder/mic_buffers.h"
#include "recorder/recorder_state.h"
#include "support/log.h"

namespace ac {

namespace {

// The capture output's sample-buffer delegate. It holds the recording weakly
// so the capture session never keeps a finished recording alive.
struct MicSampleDelegate {
  std::weak_ptr<Recorder::Impl> recorder;
  void operator()(const platform::SampleBuffer& buffer) const {
    if (auto self = recorder.lock()) self->handleMicBuffer(buffer);
  }
};

}  // namespace

void Recorder::Impl::buildMicSession() {
  platform::MicCapture& mic = platform.mic();
  std::shared_ptr<platform::CaptureDevice> device;
  if (micUID) device = mic.deviceWithUniqueID(*micUID);
  // At set-up a missing pinned microphone falls back to the default; only a
  // rebuild mid-call refuses to switch devices.
  if (!device) device = mic.defaultAudioDevice();
  if (!device) throw CaptureError(noMicDeviceErrorCode, "no mic device");
  log("mic device: " + device->localizedName() + " (" + device->uniqueID() + ")");
  log("mic device format: " + micFormatDiagnostic(device->activeFormat()));

  std::shared_ptr<platform::CaptureSession> session = mic.makeSession();
  Error inputError;
  std::shared_ptr<platform::CaptureDeviceInput> input = mic.makeDeviceInput(device, inputError);
  if (!input) throw CaptureError(inputError);
  if (!session->canAddInput(input)) throw CaptureError(micInputRejectedErrorCode, "cannot add mic input");
  session->addInput(input);
  {
    std::lock_guard<std::mutex> lock(micRebuildLock);
    micDevice = device;
    micDeviceInput = input;
  }

  std::shared_ptr<platform::AudioDataOutput> output = makeMicCaptureOutput(mic.makeAudioDataOutput());
  output->setSampleBufferHandler(MicSampleDelegate{weak_from_this()}, writeQueueMic.get());
  micOutput = output;
  if (!session->canAddOutput(output)) throw CaptureError(micOutputRejectedErrorCode, "cannot add mic output");
  session->addOutput(output);
  captureSession = session;
}

void Recorder::Impl::handleMicBuffer(const platform::SampleBuffer& buffer) {
  if (!micInput) return;

  // The track's format is the mono one every buffer is mixed down to.
  const platform::AudioFormatDescription format = mixedDownFormat(buffer.format);
  if (!micFormatDescription || !(*micFormatDescription == format)) {
    if (micFormatDescription) ++micFormatChanges;
    micFormatDescription = format;
    log("mic format: " + micFormatDiagnostic(format) + " changes=" + std::to_string(micFormatChanges));
  }

  // The seam lends the buffer read-only, so the retimed one is a copy.
  platform::SampleBuffer retimed = buffer;
  if (!retime(retimed, anchoredPTS(buffer.presentationTime()))) return;
  mixDownToMono(retimed);
  if (!micInput->isReadyForMoreMediaData()) return;

  if (!micInput->append(retimed)) {
    ++micAppendFailures;
    const std::optional<Error> error = assetWriter ? assetWriter->error() : std::nullopt;
    if (micAppendFailures == 1) log("mic writer error: " + fullErrorDescription(error));
    log("mic append failed: " + (error ? error->description : std::string("?")));
    if (micAppendFailures == appendFailureNoticeCount)
      notices.notifyAppendFailureOnce(currentAppendFailureReason(), diskFullAdvice);
    return;
  }

  ++micSamplesAppended;
  // Sampled on every 50th buffer only (unless a meter needs every peak): the
  // maximum is a diagnostic, not the true maximum.
  const bool tick = micSamplesAppended % micTickInterval == 1;
  if (!levelFile && !tick) return;
  const float peak = micPeakAmplitude(retimed);
  if (tick) {
    if (peak > micMaxSampleAbs) micMaxSampleAbs = peak;
    log("mic tick: appended=" + std::to_string(micSamplesAppended) + " maxSampleAbs=" + formatFloat(peak));
  }
  if (levelFile) levelFile->offer(peak);
}

}  // namespace ac
