#include "recorder/recorder.h"

#include "recorder/aac_settings.h"
#include "recorder/level_file.h"
#include "recorder/recorder_state.h"
#include "support/error.h"
#include "support/log.h"

namespace ac {

namespace {

constexpr int systemBitRate = 128000;
constexpr int micBitRate = 64000;
constexpr double micSourceRate = 48000;
constexpr uint32_t micSourceChannels = 1;
// A movie fragment every 5 s, so a crash leaves a file readable up to the
// last fragment.
const platform::MediaTime fragmentInterval = platform::MediaTime::make(3000, 600);

}  // namespace

Recorder::Impl::Impl(platform::Platform& platformArg, std::string path, bool system, bool mic,
                     std::optional<std::string> uid, capture::PostNotification poster)
    : platform(platformArg),
      outputPath(std::move(path)),
      includeSystem(system),
      includeMic(mic),
      micUID(std::move(uid)),
      post(std::move(poster)),
      notices(this->post),
      writeQueueSystem(std::make_shared<SerialQueue>("audio-capture.write.system")),
      writeQueueMic(std::make_shared<SerialQueue>("audio-capture.write.mic")),
      micWatchQueue(std::make_shared<SerialQueue>("audio-capture.mic-watch")),
      deviceWatchQueue(std::make_shared<SerialQueue>("audio-capture.device-watch")) {}

Recorder::Impl::~Impl() {
  // Nothing registered with the platform may outlive the queues it names.
  systemCapture.reset();
  removeArmedInputWatch();
  {
    std::lock_guard<std::mutex> lock(micRebuildLock);
    removeMicDisconnectObservers();
  }
  if (micOutput) micOutput->setSampleBufferHandler(nullptr, nullptr);
}

void Recorder::Impl::setup() {
  // Claimed first, so nothing that was at the path is overwritten; a
  // failure after the claim removes only the file made here.
  outputClaim = OutputClaim::create(outputPath);
  try {
    buildWriterAndSources();
  } catch (...) {
    discardOutput("output: ");
    throw;
  }
  log("writer started → " + outputPath);
}

void Recorder::Impl::buildWriterAndSources() {
  Error writerError;
  assetWriter = platform.writers().makeMPEG4Writer(outputPath, fragmentInterval, writerError);
  if (!assetWriter) throw CaptureError(writerError);

  if (includeSystem) {
    systemCapture = std::make_unique<capture::SystemCapture>(platform.audio(), *this, post);
    systemPeriodsSignal = std::make_unique<QueueSignal>(*writeQueueSystem, [weak = weak_from_this()] {
      if (auto self = weak.lock()) self->systemCapture->drainCallbacks();
    });
    systemCapture->setup();
    const platform::StreamFormat format = systemCapture->systemFormat();
    AACWriterInput sys =
        makeAACWriterInput(*assetWriter, format.sampleRate, format.channelsPerFrame, systemBitRate, "sys", true);
    systemAacRate = sys.rate;
    systemAacClamped = sys.clamped;
    if (!assetWriter->canAddInput(sys.input))
      throw CaptureError(systemInputRejectedErrorCode, "writer rejected system input");
    assetWriter->addInput(sys.input);
    systemInput = sys.input;
  }

  if (includeMic) {
    buildMicSession();
    AACWriterInput mic = makeAACWriterInput(*assetWriter, micSourceRate, micSourceChannels, micBitRate, "mic", false);
    if (!assetWriter->canAddInput(mic.input))
      throw CaptureError(micWriterInputRejectedErrorCode, "writer rejected mic input");
    assetWriter->addInput(mic.input);
    micInput = mic.input;
  }

  if (!assetWriter->startWriting()) {
    throw CaptureError(startWritingErrorCode, "startWriting failed");
  }
}

void Recorder::Impl::start() {
  if (assetWriter) {
    // Always zero: samples are moved onto this time line by anchoredPTS.
    assetWriter->startSession(platform::MediaTime::make(0, 1));
    std::lock_guard<std::mutex> lock(sessionStartLock);
    sessionStarted = true;
  }
  if (includeSystem && systemCapture) systemCapture->start();
  if (includeMic && captureSession) {
    installMicDisconnectObservers();
    captureSession->startRunning();
    log("mic capture session running");
  }
  if (systemCapture) systemCapture->installListeners();
}

platform::MediaTime Recorder::Impl::anchoredPTS(platform::MediaTime time) {
  if (!time.valid) return platform::MediaTime::invalid();
  std::lock_guard<std::mutex> lock(anchorLock);
  if (!sessionAnchor) sessionAnchor = time;
  return platform::mediaTimeSubtract(time, *sessionAnchor);
}

std::string Recorder::Impl::currentAppendFailureReason() {
  return appendFailureReason(assetWriter ? assetWriter->error() : std::nullopt);
}

// ---- Recorder ---------------------------------------------------------------

Recorder::Recorder(platform::Platform& platform, std::string outputPath, bool includeSystem, bool includeMic,
                   std::optional<std::string> micUID, capture::PostNotification post)
    : impl_(std::make_shared<Impl>(platform, std::move(outputPath), includeSystem, includeMic, std::move(micUID),
                                   std::move(post))) {}

Recorder::~Recorder() = default;

void Recorder::setup() { impl_->setup(); }
void Recorder::start() { impl_->start(); }
void Recorder::stop(std::function<void()> completion) { impl_->stop(std::move(completion)); }

void Recorder::setLevelFile(std::unique_ptr<MicLevelFile> file) {
  // Handed over on the queue that feeds it, so it never changes under an offer.
  auto* impl = impl_.get();
  impl->writeQueueMic->sync([impl, &file] { impl->levelFile = std::move(file); });
}

bool Recorder::installArmedInputWatch(std::function<void(const std::string&)> onChange) {
  return impl_->installArmedInputWatch(std::move(onChange));
}
void Recorder::removeArmedInputWatch() { impl_->removeArmedInputWatch(); }
std::optional<std::string> Recorder::armedDeviceStaleReason() { return impl_->armedDeviceStaleReason(); }
void Recorder::discardArmed() { impl_->discardArmed(); }
void Recorder::discardUnstarted() { impl_->discardOutput("output: "); }
const std::string& Recorder::outputPath() const { return impl_->outputPath; }

}  // namespace ac
