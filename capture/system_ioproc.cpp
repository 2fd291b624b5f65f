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
using Kind = SystemCallbackEvent::Kind;

// A callback whose tap buffers could not be passed on. Returns the new
// failure count; the tenth consecutive one asks for the once-only notice.
int64_t recordDroppedCallback(State& s, SystemPeriod& p, bool advanceStreak) {
  const int64_t f = s.dataFailures.fetch_add(1, std::memory_order_relaxed) + 1;
  if (advanceStreak && s.dataFailureStreak.fetch_add(1, std::memory_order_relaxed) + 1 == kNoticeStreak)
    p.askForNotice = true;
  return f;
}

// Falls back to the whole list when no current selection applies; false
// (after counting the drop) when the whole list is not the tap either.
bool acceptWholeList(State& s, SystemPeriod& p, const AudioBufferList& list, int64_t index, int64_t count,
                     int64_t probed) {
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
  if (shouldLogFailureCount(f)) {
    SystemCallbackEvent e;
    e.kind = Kind::rangeUnusable, e.verifies = verifies, e.index = index, e.count = count, e.probed = probed, e.buffers = n, e.failures = f;
    e.channelSum = sum, e.tapChannels = tapChannels;
    p.report(e);
  }
  if (!verifies) recordDroppedCallback(s, p, true);
  return verifies;
}

// Fills the period; false when the callback is dropped.
bool convert(State& s, SystemPeriod& p, const AudioBufferList& list, int64_t calls,
             const platform::AudioTimeStamp& inputTime) {
  const int64_t n = list.numberBuffers;
  int64_t index = s.tapBufferIndex;
  int64_t count = s.tapBufferCount;
  const int64_t probed = s.tapProbedBufferCount;
  if (!tapSelectionIsCurrent(index, count, probed, n)) {
    if (!acceptWholeList(s, p, list, index, count, probed)) return false;
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
  SystemCallbackEvent e{};
  e.index = index, e.count = count, e.buffers = n, e.totalBytes = totalBytes, e.frames = frames;

  if (calls % 200 == 1) {
    float tickPeak = 0;
    for (int64_t i = 0; i < count; ++i) tickPeak = std::max(tickPeak, maxAbsSample(run[i], 1024));
    e.kind = Kind::tick, e.bytesPerFrame = bytesPerFrame, e.peak = tickPeak;
    p.report(e);
  }
  if (firstBytes < bytesPerFrame) return false;

  const AudioBufferList* data = &list;
  if (!(index == 0 && count == n)) {
    platform::OwnedBufferList* scratch = s.tapScratch.get();
    if (!scratch || scratch->capacity() < count) {
      // The streak is left alone: this is a sizing fault of ours, not audio
      // that stopped arriving.
      e.failures = s.tapBufferBoundsFailures.fetch_add(1, std::memory_order_relaxed) + 1;
      recordDroppedCallback(s, p, false);
      if (shouldLogFailureCount(e.failures)) e.kind = Kind::noScratch, e.capacity = s.tapScratchCapacity(), p.report(e);
      return false;
    }
    AudioBufferList* sub = scratch->get();
    sub->numberBuffers = uint32_t(count);
    std::copy(run, run + count, sub->buffers);
    data = sub;
  }

  if (const OSStatus st = p.copyAudio(*data)) {
    if (st == SystemPeriod::kTooLarge) {
      e.failures = s.periodsTooLarge.fetch_add(1, std::memory_order_relaxed) + 1;
      recordDroppedCallback(s, p, true);
      if (shouldLogFailureCount(e.failures)) e.kind = Kind::tooLarge, p.report(e);
      return false;
    }
    e.failures = recordDroppedCallback(s, p, true);
    if (shouldLogFailureCount(e.failures)) e.kind = Kind::attachFailed, e.status = st, p.report(e);
    return false;
  }
  s.dataFailureStreak.store(0, std::memory_order_relaxed);
  p.hostPTS = platform::MediaTime::make(hostTimeToNanos(inputTime.hostTime, s.timebaseNumer, s.timebaseDenom),
                                        1000000000);
  p.format = format;
  p.frames = frames;
  p.hasSample = true;
  return true;
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
  SystemPeriod* p = s.periods.claim();
  if (!p) {
    s.periodOverruns.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  p->clear();
  convert(s, *p, *inputData, calls, *inputTime);
  if (!p->hasSample && !p->askForNotice && p->eventCount == 0) return;  // nothing to say: the slot stays free
  s.periods.publish();
  s.sink.systemPeriodsReady();
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
