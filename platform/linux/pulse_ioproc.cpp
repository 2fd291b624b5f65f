#include "platform/linux/pulse_ioproc.h"

#include "platform/linux/pulse_device_model.h"
#include "support/log.h"

namespace ac::platform::linux_backend {

PulseIOProc::PulseIOProc(const std::string& queueLabel, const std::string& server, IOBlock block)
    : block_(std::move(block)),
      connection_(queueLabel, server),
      stream_(
          connection_, [this](const CapturedChunk& chunk) { deliver(chunk); },
          [](int error) { ac::log("pulse: system capture stream ended by the server (error " + std::to_string(error) + ")"); }) {}

PulseIOProc::~PulseIOProc() { stop(); }

OSStatus PulseIOProc::start(const std::string& monitorSource, uint32_t rate) {
  if (stream_.running()) return kNoErr;
  pa_sample_spec spec{PA_SAMPLE_FLOAT32LE, rate, kTapChannels};
  return stream_.start(monitorSource, spec, kFragmentMs, "audio-capture system tap");
}

OSStatus PulseIOProc::stop() { return stream_.stop(); }

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
