#include "platform/linux/pulse_ioproc.h"

#include "platform/linux/pulse_device_model.h"
#include "support/log.h"

namespace ac::platform::linux_backend {

namespace {
constexpr const char* kStreamName = "audio-capture system tap";
pa_sample_spec tapSpec(uint32_t rate) { return pa_sample_spec{PA_SAMPLE_FLOAT32LE, rate, kTapChannels}; }
}  // namespace

PulseIOProc::PulseIOProc(std::shared_ptr<PulseConnection> connection, std::function<void()> serverGone)
    : serverGone_(std::move(serverGone)),
      connection_(std::move(connection)),
      stream_(
          *connection_, [this](const CapturedChunk& chunk) { deliver(chunk); },
          [this](int error) { onStreamEnded(error); }) {}

PulseIOProc::~PulseIOProc() { stop(); }

void PulseIOProc::bind(const std::string& queueLabel, IOBlock block) {
  {
    // Under the loop lock: the loop thread reads the block once the stream runs.
    PulseConnection::Lock lock(*connection_);
    block_ = std::move(block);
  }
  connection_->nameLoopThread(queueLabel);
}

OSStatus PulseIOProc::prepare(const std::string& monitorSource, uint32_t rate) {
  return stream_.prepare(monitorSource, tapSpec(rate), kFragmentMs, kStreamName);
}

OSStatus PulseIOProc::start(const std::string& monitorSource, uint32_t rate) {
  reconnect_.cancel();
  if (stream_.running()) return kNoErr;
  monitor_ = monitorSource;
  spec_ = tapSpec(rate);
  return stream_.start(monitor_, spec_, kFragmentMs, kStreamName);
}

OSStatus PulseIOProc::stop() {
  reconnect_.cancel();
  return stream_.stop();
}

void PulseIOProc::onStreamEnded(int error) {
  if (!serverWentAway(error)) {
    ac::log("pulse: system capture stream ended by the server (error " + std::to_string(error) + ")");
    return;
  }
  reconnect_.begin([this] { return stream_.start(monitor_, spec_, kFragmentMs, kStreamName) == kNoErr; },
                   [this] {
                     ac::log("pulse: system capture lost its device — the sound server did not come back");
                     if (serverGone_) serverGone_();
                   });
}

void PulseIOProc::deliver(const CapturedChunk& chunk) {
  // Lives on the stack: the real-time path allocates nothing.
  AudioBufferList list;
  list.numberBuffers = 1;
  list.buffers[0] = AudioBuffer{kTapChannels, static_cast<uint32_t>(chunk.bytes), const_cast<void*>(chunk.data)};
  AudioTimeStamp stamp;
  stamp.sampleTime = double(chunk.framePosition);
  stamp.hostTime = uint64_t(chunk.hostTimeNs);
  stamp.flags = kSampleTimeValid | kHostTimeValid;
  block_(&list, &stamp);
}

}  // namespace ac::platform::linux_backend
