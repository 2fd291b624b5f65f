#include "capture/system_periods.h"

#include <cstring>
#include <string>

#include "capture/system_capture_state.h"
#include "support/log.h"

namespace ac::capture {

using std::to_string;

platform::OSStatus SystemPeriod::copyAudio(const platform::AudioBufferList& list) {
  if (list.numberBuffers > maxBuffers) return kTooLarge;
  size_t used = 0;
  for (uint32_t i = 0; i < list.numberBuffers; ++i) {
    const platform::AudioBuffer& b = list.buffers[i];
    if (b.dataByteSize > 0 && b.data == nullptr) return -12731;  // invalid parameter
    if (b.dataByteSize > maxBytes - used) return kTooLarge;
    if (b.dataByteSize) std::memcpy(audio.data() + used, b.data, b.dataByteSize);
    used += b.dataByteSize;
    channels[i] = b.numberChannels;
    bytes[i] = b.dataByteSize;
  }
  bufferCount = list.numberBuffers;
  return platform::kNoErr;
}

platform::SampleBuffer SystemPeriod::sampleBuffer() const {
  platform::SampleBuffer sb;
  sb.format = platform::AudioFormatDescription{format, 0, 0};
  sb.timing.push_back({platform::MediaTime::make(1, int32_t(format.sampleRate)), hostPTS,
                       platform::MediaTime::invalid()});
  sb.numSamples = frames;
  sb.dataReady = true;
  const uint8_t* p = audio.data();
  for (uint32_t i = 0; i < bufferCount; ++i) {
    sb.buffers.emplace_back(p, p + bytes[i]);
    sb.bufferChannels.push_back(channels[i]);
    p += bytes[i];
  }
  return sb;
}

namespace {

void logEvent(const SystemCallbackEvent& e) {
  using Kind = SystemCallbackEvent::Kind;
  switch (e.kind) {
    case Kind::rangeUnusable:
      log("tap buffer range " + to_string(e.index) + "+" + to_string(e.count) + " (probed against " +
          to_string(e.probed) + ") unusable against an ABL of " + to_string(e.buffers) + " buffers (" +
          to_string(e.channelSum) + " ch total, tap wants " + to_string(e.tapChannels) + ") \u2014 " +
          (e.verifies ? "the whole list verifies as the tap, taking it"
                      : "cannot identify the tap, dropping the callback") +
          " (n=" + to_string(e.failures) + ")");
      return;
    case Kind::tick:
      log("sys tick: bufs=" + to_string(e.buffers) + " tapbuf=" + to_string(e.index) +
          (e.count >= 2 ? " tapbufs=" + to_string(e.count) : std::string()) + " bytes=" + to_string(e.totalBytes) +
          " bpf=" + to_string(e.bytesPerFrame) + " frames=" + to_string(e.frames) +
          " maxSampleAbs=" + formatFloat(e.peak));
      return;
    case Kind::noScratch:
      log("tap buffer selection " + to_string(e.index) + "+" + to_string(e.count) +
          " has no scratch list (capacity " + to_string(e.capacity) +
          ") \u2014 dropping the callback rather than passing the whole ABL (n=" + to_string(e.failures) + ")");
      return;
    case Kind::attachFailed:
      log("CMSampleBufferSetDataBufferFromAudioBufferList failed: " + to_string(e.status) +
          " sysDataFail=" + to_string(e.failures) + " bufs=" + to_string(e.buffers) + " tapbuf=" +
          to_string(e.index) + "/" + to_string(e.count) + " bytes=" + to_string(e.totalBytes) +
          " frames=" + to_string(e.frames));
      return;
    case Kind::tooLarge:
      log("system capture: a period of " + to_string(e.totalBytes) + " bytes in " + to_string(e.count) +
          " buffers does not fit the " + to_string(SystemPeriod::maxBytes) +
          "-byte slot \u2014 dropping the callback (n=" + to_string(e.failures) + ")");
      return;
  }
}

}  // namespace

void drainSystemPeriods(SystemCapture::State& s) {
  while (SystemPeriod* p = s.periods.front()) {
    for (uint32_t i = 0; i < p->eventCount; ++i) logEvent(p->events[i]);
    if (p->askForNotice)
      s.sink.notifyAppendFailureOnce(
          "System audio not captured",
          "Some system audio may be missing from this recording. Stop and restart if you need it.");
    if (p->hasSample) {
      platform::SampleBuffer sample = p->sampleBuffer();
      s.periods.pop();  // the callback may refill it while the append runs
      s.sink.appendSystemSample(sample.presentationTime(), sample);
    } else {
      s.periods.pop();
    }
  }
  const int64_t overruns = s.periodOverruns.load(std::memory_order_relaxed);
  for (int64_t n = s.periodOverrunsLogged + 1; n <= overruns; ++n)
    if (shouldLogFailureCount(n))
      log("system capture: the write queue fell " + to_string(systemPeriodSlots) +
          " periods behind \u2014 dropping the callback (n=" + to_string(n) + ")");
  s.periodOverrunsLogged = overruns;
}

}  // namespace ac::capture
