#include "capture/tap_topology.h"

#include "capture/process_tap.h"
#include "capture/system_ioproc.h"
#include "capture/tap_buffer_selection.h"
#include "capture/tap_format.h"
#include "support/error.h"
#include "support/log.h"

namespace ac::capture {

using State = SystemCapture::State;
using std::to_string;

std::string refreshTapBufferRange(State& s, platform::AudioObjectID aggregate,
                                  const std::optional<std::string>& outputUID) {
  const uint32_t tapChannels = s.systemFormat.channelsPerFrame;
  const bool interleaved = !isNonInterleaved(s.systemFormat);
  ensureTapScratch(s, tapChannels, 1);

  std::vector<uint32_t> counts;
  try {
    counts = inputStreamChannelCounts(s.hw, aggregate);
  } catch (const CaptureError& e) {
    s.tapBufferIndex = 0;
    s.tapBufferCount = 0;
    s.tapProbedBufferCount = -1;
    return std::string("aggBufs=err subBufs=? tapBuf=0 tapBufCount=0 select=undetermined probe-error=") + e.what();
  }

  // The sub-device's own input count, when it can be measured, says where
  // the tap's buffers begin.
  std::optional<int64_t> sub;
  if (outputUID) {
    try {
      sub = int64_t(inputStreamChannelCounts(s.hw, deviceIDForUID(s.hw, *outputUID)).size());
    } catch (const CaptureError&) {
    }
  }

  TapBufferRange range = tapBufferRange(counts, sub, tapChannels, interleaved);
  if (range.count >= 1 && !ensureTapScratch(s, tapChannels, range.count))
    range = {0, 0, TapBufferSelect::scratchCap};
  s.tapBufferIndex = range.index;
  s.tapBufferCount = range.count;
  s.tapProbedBufferCount = int64_t(counts.size());

  std::string channels;
  for (size_t i = 0; i < counts.size(); ++i) channels += (i ? "," : "") + to_string(counts[i]);
  return "aggBufs=" + to_string(counts.size()) + " aggCh=[" + channels + "] subBufs=" +
         (sub ? to_string(*sub) : std::string("?")) + " tapBuf=" + to_string(range.index) +
         " tapBufCount=" + to_string(range.count) + " select=" + rawValue(range.select);
}

bool refreshTapTopology(State& s, const std::string& reason, const std::optional<platform::StreamFormat>& known,
                        bool countsAsChange, platform::AudioObjectID aggregate,
                        const std::optional<std::string>& outputUID) {
  if (!s.included || s.tapID == 0) return false;

  const platform::StreamFormat old = s.systemFormat;
  const std::string keeping = " keeping sr=" + formatDouble(old.sampleRate) + " ch=" + to_string(old.channelsPerFrame);
  std::optional<platform::StreamFormat> fresh = known;
  std::string formatFragmentText;
  if (!fresh) {
    try {
      fresh = tapStreamFormat(s.hw, s.tapID);
    } catch (const CaptureError& e) {
      formatFragmentText = std::string("read-failed=") + e.what() + keeping;
    }
  }

  bool adopted = false;
  if (fresh && isUsableTapFormat(*fresh)) {
    const bool changed = !asbdEquivalent(old, *fresh);
    s.systemFormat = *fresh;
    if (changed && countsAsChange) s.systemFormatChanges.fetch_add(1);
    adopted = true;
    formatFragmentText = "sr=" + formatDouble(old.sampleRate) + "\u2192" + formatDouble(fresh->sampleRate) +
                         " ch=" + to_string(fresh->channelsPerFrame) + " bpf=" + to_string(fresh->bytesPerFrame) +
                         " changed=" + (changed ? "true" : "false");
  } else if (fresh) {
    formatFragmentText = "rejected-invalid " + formatFragment(*fresh) + keeping;
  }

  const std::string rangeFragment = refreshTapBufferRange(s, aggregate, outputUID);
  log("sys topology: reason=" + reason + " " + formatFragmentText + " " + rangeFragment);
  return adopted;
}

}  // namespace ac::capture
