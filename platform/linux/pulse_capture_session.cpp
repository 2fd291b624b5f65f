#include "platform/linux/pulse_capture_session.h"

#include <algorithm>

#include <pulse/error.h>

#include <cstring>

#include "platform/linux/pulse_connection.h"
#include "support/dispatch.h"
#include "support/log.h"

namespace ac::platform::linux_backend {

namespace {
constexpr const char* kStreamName = "audio-capture microphone";
}  // namespace

std::optional<pa_sample_spec> sampleSpecFor(const CaptureAudioSettings& s) {
  if (s.formatID != kAudioFormatLinearPCM || s.channels < 1 || s.channels > int(PA_CHANNELS_MAX)) return std::nullopt;
  if (s.isNonInterleaved && s.channels > 1) return std::nullopt;
  if (s.sampleRate < 1 || s.sampleRate > PA_RATE_MAX) return std::nullopt;
  pa_sample_format_t format = PA_SAMPLE_INVALID;
  if (s.isFloat && s.bitDepth == 32) {
    format = s.isBigEndian ? PA_SAMPLE_FLOAT32BE : PA_SAMPLE_FLOAT32LE;
  } else if (!s.isFloat && s.bitDepth == 16) {
    format = s.isBigEndian ? PA_SAMPLE_S16BE : PA_SAMPLE_S16LE;
  } else if (!s.isFloat && s.bitDepth == 24) {
    format = s.isBigEndian ? PA_SAMPLE_S24BE : PA_SAMPLE_S24LE;
  } else if (!s.isFloat && s.bitDepth == 32) {
    format = s.isBigEndian ? PA_SAMPLE_S32BE : PA_SAMPLE_S32LE;
  } else {
    return std::nullopt;
  }
  return pa_sample_spec{format, static_cast<uint32_t>(s.sampleRate), static_cast<uint8_t>(s.channels)};
}

void PulseAudioDataOutput::setAudioSettings(const CaptureAudioSettings& settings) {
  std::lock_guard<std::mutex> guard(mutex_);
  settings_ = settings;
}

CaptureAudioSettings PulseAudioDataOutput::audioSettings() const {
  std::lock_guard<std::mutex> guard(mutex_);
  return settings_;
}

void PulseAudioDataOutput::setSampleBufferHandler(SampleBufferHandler handler, ::ac::SerialQueue* queue) {
  std::lock_guard<std::mutex> guard(mutex_);
  delivery_ = Delivery{std::move(handler), queue};
}

PulseAudioDataOutput::Delivery PulseAudioDataOutput::delivery() const {
  std::lock_guard<std::mutex> guard(mutex_);
  return delivery_;
}

MicChunkPipe::MicChunkPipe(std::shared_ptr<PulseAudioDataOutput> output, ::ac::SerialQueue& queue,
                           AudioFormatDescription format)
    : output_(std::move(output)), format_(format), queue_(&queue), ring_(kSlots) {}

std::shared_ptr<MicChunkPipe> MicChunkPipe::make(std::shared_ptr<PulseAudioDataOutput> output,
                                                 ::ac::SerialQueue& queue, AudioFormatDescription format) {
  std::shared_ptr<MicChunkPipe> pipe(new MicChunkPipe(std::move(output), queue, format));
  // Weak: a drain already under way when the stream (and the pipe) goes must find it gone.
  pipe->signal_ = std::make_unique<::ac::QueueSignal>(queue, [weak = std::weak_ptr<MicChunkPipe>(pipe)] {
    if (auto self = weak.lock()) self->drain();
  });
  return pipe;
}

void MicChunkPipe::push(const CapturedChunk& chunk) {
  const size_t frameBytes = std::max<size_t>(1, format_.asbd.bytesPerFrame);
  const size_t slotFrames = kSlotBytes / frameBytes;
  const auto* bytes = static_cast<const uint8_t*>(chunk.data);
  for (uint64_t done = 0; done < chunk.frames;) {
    MicChunk* slot = ring_.claim();
    if (!slot) {
      overruns_.fetch_add(1, std::memory_order_relaxed);
      break;
    }
    const uint64_t frames = std::min<uint64_t>(slotFrames, chunk.frames - done);
    slot->hostTimeNs = chunk.hostTimeNs + int64_t(double(done) * 1e9 / format_.asbd.sampleRate);
    slot->frames = frames;
    slot->bytes = frames * frameBytes;
    std::memcpy(slot->data.data(), bytes + done * frameBytes, slot->bytes);
    ring_.publish();
    done += frames;
  }
  signal_->signal();  // also when dropping: the queue logs the count
}

void MicChunkPipe::drain() {
  while (MicChunk* slot = ring_.front()) {
    SampleBuffer sb;
    sb.format = format_;
    sb.timing.push_back({MediaTime::make(1, int32_t(format_.asbd.sampleRate)),
                         MediaTime::make(slot->hostTimeNs, 1'000'000'000), MediaTime::invalid()});
    sb.numSamples = static_cast<int64_t>(slot->frames);
    sb.dataReady = true;
    sb.buffers.emplace_back(slot->data.data(), slot->data.data() + slot->bytes);
    sb.bufferChannels.push_back(format_.asbd.channelsPerFrame);
    ring_.pop();
    // The handler in place now, not the one at stream open: a swap takes
    // effect at the next buffer.
    PulseAudioDataOutput::Delivery d = output_->delivery();
    if (!d.handler) continue;
    if (!d.queue || d.queue == queue_)
      d.handler(sb);
    else
      d.queue->async([h = std::move(d.handler), sb = std::move(sb)] { h(sb); });
  }
  logDrops(overruns_, loggedOverruns_, "the delivery queue fell behind");
}

void MicChunkPipe::logDrops(const std::atomic<int64_t>& count, int64_t& logged, const char* why) {
  const int64_t now = count.load(std::memory_order_relaxed);
  for (int64_t n = logged + 1; n <= now; ++n)
    if (shouldLogFailureCount(n))
      ::ac::log(std::string("pulse: microphone chunk dropped \u2014 ") + why + " (n=" + std::to_string(n) + ")");
  logged = now;
}

PulseCaptureSession::PulseCaptureSession(std::shared_ptr<PulseConnection> connection,
                                         std::shared_ptr<MicObservers> observers)
    : connection_(std::move(connection)), observers_(std::move(observers)) {}

PulseCaptureSession::~PulseCaptureSession() {
  std::lock_guard<std::mutex> guard(mutex_);
  reconnect_.cancel();
  running_ = false;
  closeStreamLocked();
}

void PulseCaptureSession::beginConfiguration() {
  std::lock_guard<std::mutex> guard(mutex_);
  ++configurationDepth_;
}

void PulseCaptureSession::commitConfiguration() {
  std::lock_guard<std::mutex> guard(mutex_);
  if (configurationDepth_ > 0) --configurationDepth_;
  if (configurationDepth_ == 0) applyLocked();
}

bool PulseCaptureSession::canAddInput(const std::shared_ptr<CaptureDeviceInput>& input) {
  std::lock_guard<std::mutex> guard(mutex_);
  return std::dynamic_pointer_cast<PulseCaptureDeviceInput>(input) && !pendingInput_;
}

void PulseCaptureSession::addInput(const std::shared_ptr<CaptureDeviceInput>& input) {
  std::lock_guard<std::mutex> guard(mutex_);
  auto pulseInput = std::dynamic_pointer_cast<PulseCaptureDeviceInput>(input);
  if (!pulseInput || pendingInput_) return;  // one input; the caller asked canAddInput first
  pendingInput_ = std::move(pulseInput);
  if (configurationDepth_ == 0) applyLocked();
}

void PulseCaptureSession::removeInput(const std::shared_ptr<CaptureDeviceInput>& input) {
  std::lock_guard<std::mutex> guard(mutex_);
  if (!input || pendingInput_ != input) return;
  pendingInput_.reset();
  if (configurationDepth_ == 0) applyLocked();
}

bool PulseCaptureSession::canAddOutput(const std::shared_ptr<AudioDataOutput>& output) {
  std::lock_guard<std::mutex> guard(mutex_);
  return std::dynamic_pointer_cast<PulseAudioDataOutput>(output) && !output_;
}

void PulseCaptureSession::addOutput(const std::shared_ptr<AudioDataOutput>& output) {
  std::lock_guard<std::mutex> guard(mutex_);
  auto pulseOutput = std::dynamic_pointer_cast<PulseAudioDataOutput>(output);
  if (!pulseOutput || output_) return;
  output_ = std::move(pulseOutput);
  if (!running_) prepareStreamLocked();
}

void PulseCaptureSession::startRunning() {
  std::lock_guard<std::mutex> guard(mutex_);
  reconnect_.cancel();
  if (running_) return;
  // Like the platform's session, one without an input runs, capturing nothing.
  if (activeInput_ && output_ && !openStreamLocked()) return;
  running_ = true;
}

void PulseCaptureSession::stopRunning() {
  std::lock_guard<std::mutex> guard(mutex_);
  reconnect_.cancel();
  running_ = false;
  closeStreamLocked();
}

void PulseCaptureSession::applyLocked() {
  if (activeInput_ == pendingInput_) return;
  activeInput_ = pendingInput_;
  reconnect_.cancel();
  if (!running_) {
    // A stream made ahead was for the old input; the next start opens one
    // on the new input.
    closeStreamLocked();
    return;
  }
  // The swap: the stream moves to the new source (or stops without one).
  closeStreamLocked();
  running_ = !(activeInput_ && output_) || openStreamLocked();
}

bool PulseCaptureSession::reopen() {
  // Never waits for mutex_: its holder may be cancelling this very retry.
  std::unique_lock<std::mutex> guard(mutex_, std::try_to_lock);
  if (!guard) return false;
  if (!running_ || !activeInput_ || !output_) return true;
  closeStreamLocked();
  return openStreamLocked();
}

void PulseCaptureSession::closeStreamLocked() {
  if (stream_) stream_->stop();
  stream_.reset();
  streamPlan_.reset();
}

std::optional<PulseCaptureSession::StreamPlan> PulseCaptureSession::planLocked() {
  if (!activeInput_ || !output_) return std::nullopt;
  std::optional<pa_sample_spec> spec = sampleSpecFor(output_->audioSettings());
  if (!spec) return std::nullopt;
  // A mono float request is served as the source gives it: PipeWire's
  // server sums the channels where PulseAudio averages them, so the core
  // mixes down itself (see AudioDataOutput).
  if (spec->channels == 1 && (spec->format == PA_SAMPLE_FLOAT32LE || spec->format == PA_SAMPLE_FLOAT32BE))
    spec->channels = std::max<uint8_t>(1, activeInput_->pulseDevice().channels());
  ::ac::SerialQueue* queue = output_->delivery().queue;
  if (!queue) {
    if (!ownQueue_) ownQueue_ = std::make_unique<::ac::SerialQueue>("audio-capture.mic-delivery");
    queue = ownQueue_.get();
  }
  return StreamPlan{activeInput_->device()->uniqueID(), *spec, queue};
}

void PulseCaptureSession::makeStreamLocked(const StreamPlan& plan) {
  auto pipe = MicChunkPipe::make(output_, *plan.queue, AudioFormatDescription{streamFormatFor(plan.spec), 0, 0});
  auto onChunk = [pipe](const CapturedChunk& chunk) { pipe->push(chunk); };
  auto onFailure = [this](int error) {
    if (serverWentAway(error)) {
      reconnect_.begin([this] { return reopen(); },
                       [this] {
                         running_ = false;
                         observers_->postRuntimeError(
                             this, micStopError(MicStopKind::serviceReset, "the sound server did not come back"));
                       });
      return;
    }
    running_ = false;
    // A vanished source is reported by the disconnect observers; what is
    // left is the server going away, or a stream it ended for its own reasons.
    const MicStopKind kind = error == PA_ERR_CONNECTIONTERMINATED ? MicStopKind::serviceReset : MicStopKind::transient;
    observers_->postRuntimeError(this, micStopError(kind, std::string("the microphone stream stopped: ") + pa_strerror(error)));
  };
  stream_ = std::make_unique<PulseRecordStream>(*connection_, std::move(onChunk), std::move(onFailure));
  streamPlan_ = plan;
}

bool PulseCaptureSession::openStreamLocked() {
  std::optional<StreamPlan> plan = planLocked();
  if (!plan) return false;
  const bool fits = stream_ && streamPlan_ && streamPlan_->source == plan->source &&
                    streamPlan_->queue == plan->queue && pa_sample_spec_equal(&streamPlan_->spec, &plan->spec);
  if (!fits) {
    closeStreamLocked();
    makeStreamLocked(*plan);
  }
  // Uncorks a prepared stream; starts afresh one that is not (or no longer) there.
  if (stream_->start(plan->source, plan->spec, kFragmentMs, kStreamName) != kNoErr) {
    closeStreamLocked();
    return false;
  }
  return true;
}

void PulseCaptureSession::prepareStreamLocked() {
  closeStreamLocked();
  std::optional<StreamPlan> plan = planLocked();
  if (!plan) return;
  makeStreamLocked(*plan);
  // A failure costs nothing: startRunning() then opens the stream afresh.
  (void)stream_->prepare(plan->source, plan->spec, kFragmentMs, kStreamName);
}

}  // namespace ac::platform::linux_backend
