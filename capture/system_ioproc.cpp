#include "capture/system_ioproc.h"

#include <algorithm>
#include <cstdlib>

#include "capture/sample_level.h"
#include "capture/tap_buffer_selection.h"
#include "capture/tap_format.h"
#include "support/log.h"

namespace ac::capture {

using platform::AudioBufferList;
using platform::OSStatus;
using State = SystemCapture::State;
using std::to_string;

namespace {

constexpr int64_t kNoticeStreak = 10;

// A callback whose tap buffers could not be passed on. Returns the new
// failure count; the tenth consecutive one asks for the once-only notice.
int64_t recordDroppedCallback(State& s, bool advanceStreak) {
  const int64_t f = s.dataFailures.fetch_add(1, std::memory_order_relaxed) + 1;
  if (advanceStreak && s.dataFailureStreak.fetch_add(1, std::memory_order_relaxed) + 1 == kNoticeStreak)
    s.sink.notifyAppendFailureOnceOnSystemQueue(
        "System audio not captured",
        "Some system audio may be missing from this recording. Stop and restart if you need it.");
  return f;
}

// Falls back to the whole list when no current selection applies; false
// (after counting the drop) when the whole list is not the tap either.
bool acceptWholeList(State& s, const AudioBufferList& list, int64_t index, int64_t count, int64_t probed) {
  const int64_t n = list.numberBuffers;
  uint64_t sum = 0;
  bool mono = true;
  for (int64_t i = 0; i < n; ++i) {
    sum += list.buffers[i].numberChannels;
    mono = mono && list.buffers[i].numberChannels == 1;
  }
  const uint32_t tapChannels = s.systemFormat.channelsPerFrame;
  const bool verifies = tapBufferRunVerifies(sum, n, mono, tapChannels, !isNonInterleaved(s.systemFormat));
  const int64_t f = s.tapBufferBoundsFailures.fetch_add(1, std::memory_order_relaxed) + 1;
  if (shouldLogFailureCount(f))
    log("tap buffer range " + to_string(index) + "+" + to_string(count) + " (probed against " + to_string(probed) +
        ") unusable against an ABL of " + to_string(n) + " buffers (" + to_string(sum) + " ch total, tap wants " +
        to_string(tapChannels) + ") \u2014 " +
        (verifies ? "the whole list verifies as the tap, taking it" : "cannot identify the tap, dropping the callback") +
        " (n=" + to_string(f) + ")");
  if (!verifies) recordDroppedCallback(s, true);
  return verifies;
}

}  // namespace

bool ensureTapScratch(State& s, uint32_t channels, int64_t minimumBuffers) {
  if (minimumBuffers > maxTapScratchBuffers) {
    log("tap scratch: a " + to_string(minimumBuffers) + "-buffer selection exceeds the " +
        to_string(maxTapScratchBuffers) +
        "-buffer cap \u2014 storing no selection; the callback takes the whole list only if it verifies as the "
        "tap, else drops");
    return false;
  }
  const int64_t want = std::clamp<int64_t>(std::max<int64_t>(minimumBuffers, channels), 2, maxTapScratchBuffers);
  if (s.tapScratchCapacity() >= want) return true;
  s.tapScratch.reset();
  s.tapScratch = std::make_unique<platform::OwnedBufferList>(uint32_t(want));
  log("tap scratch: " + to_string(want) + " buffers");
  return true;
}

int64_t hostTimeToNanos(uint64_t hostTime, uint32_t numer, uint32_t denom) {
  uint64_t product = 0;
  if (denom == 0 || __builtin_mul_overflow(hostTime, uint64_t(numer), &product)) std::abort();
  const uint64_t ns = product / denom;
  if (ns > uint64_t(INT64_MAX)) std::abort();
  return int64_t(ns);
}

void handleSystemBuffer(State& s, const AudioBufferList* inputData, const platform::AudioTimeStamp* inputTime) {
  const int64_t calls = s.ioProcCalls.fetch_add(1, std::memory_order_relaxed) + 1;
  if (!s.sink.hasSystemInput() || !inputData || !inputTime) return;

  const AudioBufferList& list = *inputData;
  const int64_t n = list.numberBuffers;
  int64_t index = s.tapBufferIndex;
  int64_t count = s.tapBufferCount;
  const int64_t probed = s.tapProbedBufferCount;
  if (!tapSelectionIsCurrent(index, count, probed, n)) {
    if (!acceptWholeList(s, list, index, count, probed)) return;
    index = 0;
    count = n;
  }

  const platform::StreamFormat& format = s.systemFormat;
  const platform::AudioBuffer* run = &list.buffers[index];
  uint32_t totalBytes = 0;  // wraps, like the platform's own 32-bit sizes
  for (int64_t i = 0; i < count; ++i) totalBytes += run[i].dataByteSize;
  const uint32_t bytesPerFrame = format.bytesPerFrame < 2 ? 1 : format.bytesPerFrame;
  const uint32_t firstBytes = run[0].dataByteSize;

  if ((format.formatFlags & platform::kAudioFormatFlagIsFloat) && format.bitsPerChannel == 32) {
    float peak = 0;
    for (int64_t i = 0; i < count; ++i) peak = std::max(peak, maxAbsSample(run[i]));
    raisePeak(s.maxSampleAbs, peak);
  }
  const uint32_t frames = firstBytes / bytesPerFrame;

  if (calls % 200 == 1) {
    float tickPeak = 0;
    for (int64_t i = 0; i < count; ++i) tickPeak = std::max(tickPeak, maxAbsSample(run[i], 1024));
    log("sys tick: bufs=" + to_string(n) + " tapbuf=" + to_string(index) +
        (count >= 2 ? " tapbufs=" + to_string(count) : std::string()) + " bytes=" + to_string(totalBytes) +
        " bpf=" + to_string(bytesPerFrame) + " frames=" + to_string(frames) + " maxSampleAbs=" + formatFloat(tickPeak));
  }
  if (firstBytes < bytesPerFrame) return;

  const platform::MediaTime pts =
      platform::MediaTime::make(hostTimeToNanos(inputTime->hostTime, s.timebaseNumer, s.timebaseDenom), 1000000000);
  platform::SampleBuffer sample;
  sample.format = platform::AudioFormatDescription{format, 0, 0};
  sample.timing.push_back({platform::MediaTime::make(1, int32_t(format.sampleRate)), pts,
                           platform::MediaTime::invalid()});
  sample.numSamples = frames;

  const AudioBufferList* data = &list;
  if (!(index == 0 && count == n)) {
    platform::OwnedBufferList* scratch = s.tapScratch.get();
    if (!scratch || scratch->capacity() < count) {
      // The streak is left alone: this is a sizing fault of ours, not audio
      // that stopped arriving.
      const int64_t f = s.tapBufferBoundsFailures.fetch_add(1, std::memory_order_relaxed) + 1;
      recordDroppedCallback(s, false);
      if (shouldLogFailureCount(f))
        log("tap buffer selection " + to_string(index) + "+" + to_string(count) + " has no scratch list (capacity " +
            to_string(s.tapScratchCapacity()) +
            ") \u2014 dropping the callback rather than passing the whole ABL (n=" + to_string(f) + ")");
      return;
    }
    AudioBufferList* sub = scratch->get();
    sub->numberBuffers = uint32_t(count);
    std::copy(run, run + count, sub->buffers);
    data = sub;
  }

  const OSStatus st = platform::setDataFromBufferList(sample, *data);
  if (st != 0) {
    const int64_t f = recordDroppedCallback(s, true);
    if (shouldLogFailureCount(f))
      log("CMSampleBufferSetDataBufferFromAudioBufferList failed: " + to_string(st) + " sysDataFail=" + to_string(f) +
          " bufs=" + to_string(n) + " tapbuf=" + to_string(index) + "/" + to_string(count) +
          " bytes=" + to_string(totalBytes) + " frames=" + to_string(frames));
    return;
  }
  s.dataFailureStreak.store(0, std::memory_order_relaxed);
  s.sink.enqueueSystemSample(pts, std::move(sample));
}

OSStatus createSystemIOProc(State& s, platform::AudioObjectID device, platform::IOProcID& out) {
  std::weak_ptr<State> weak = s.self;
  return s.hw.createIOProc(
      device, kIOProcQueueLabel,
      [weak](const AudioBufferList* inputData, const platform::AudioTimeStamp* inputTime) {
        if (auto state = weak.lock()) handleSystemBuffer(*state, inputData, inputTime);
      },
      out);
}

bool startIOProc(State& s, platform::AudioObjectID device) {
  if (device == 0) return false;
  platform::IOProcID proc = 0;
  OSStatus st = createSystemIOProc(s, device, proc);
  if (st != 0 || proc == 0) {
    log("startIOProc: AudioDeviceCreateIOProcIDWithBlock failed: " + to_string(st));
    return false;
  }
  st = s.hw.startDevice(device, proc);
  if (st == 0) {
    s.ioProcID = proc;
    return true;
  }
  log("startIOProc: AudioDeviceStart failed: " + to_string(st));
  st = s.hw.destroyIOProc(device, proc);
  if (st != 0) {
    log("startIOProc: AudioDeviceDestroyIOProcID also failed: " + to_string(st) +
        " \u2014 retaining the proc ID for teardown");
    s.ioProcID = proc;
  }
  return false;
}

}  // namespace ac::capture
