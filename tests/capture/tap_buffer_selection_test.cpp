#include "capture/tap_buffer_selection.h"

#include <gtest/gtest.h>

#include "capture_fixture.h"
#include "support/error.h"

namespace ac::capture {
namespace {

using platform::AudioObjectID;
using Sel = TapBufferSelect;

TEST(TapBufferRange, SelectionTable) {
  struct Case {
    std::vector<uint32_t> counts;
    std::optional<int64_t> sub;
    uint32_t tapCh;
    bool interleaved;
    TapBufferRange want;
  } cases[] = {
      {{2}, 0, 2, true, {0, 1, Sel::probe}},
      {{2, 2}, 1, 2, true, {1, 1, Sel::probe}},
      {{1, 1, 2}, 2, 2, true, {2, 1, Sel::probe}},
      {{8, 2}, 1, 2, true, {1, 1, Sel::probe}},
      {{1, 2}, 1, 2, true, {1, 1, Sel::probe}},
      {{2, 2}, std::nullopt, 2, true, {1, 1, Sel::channelMatch}},
      {{2}, std::nullopt, 2, true, {0, 1, Sel::channelMatch}},
      {{2, 1, 1}, 1, 2, false, {1, 2, Sel::probe}},
      {{}, 0, 2, true, {0, 0, Sel::empty}},
      {{2, 2}, 5, 2, true, {0, 0, Sel::undetermined}},
      {{2, 2}, -1, 2, true, {0, 0, Sel::undetermined}},
      {{2, 2}, 2, 2, true, {0, 0, Sel::undetermined}},
      {{4, 4}, 0, 2, true, {0, 0, Sel::undetermined}},
      {{2, 2}, 1, 0, true, {0, 0, Sel::undetermined}},
      {{1, 1, 2}, 0, 2, true, {2, 1, Sel::channelMatch}},
      // A non-interleaved tap is one mono buffer per channel, and nothing else.
      {{2, 1, 1}, std::nullopt, 2, false, {1, 2, Sel::channelMatch}},
      {{1, 1, 1, 2}, std::nullopt, 3, false, {0, 0, Sel::undetermined}},
      {{1, 1}, std::nullopt, 2, true, {0, 0, Sel::undetermined}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.counts) + " sub=" + (c.sub ? std::to_string(*c.sub) : "?"));
    EXPECT_EQ(tapBufferRange(c.counts, c.sub, c.tapCh, c.interleaved), c.want);
  }
}

TEST(TapBufferRange, Currency) {
  struct Case {
    int64_t index, count, probed, arrived;
    bool current;
  } cases[] = {
      {1, 2, 3, 3, true},  {0, 1, 1, 2, false}, {1, 2, 3, 2, false},
      {3, 1, 3, 3, false}, {0, 0, 1, 1, false}, {-1, 1, 1, 1, false},
  };
  for (const auto& c : cases)
    EXPECT_EQ(tapSelectionIsCurrent(c.index, c.count, c.probed, c.arrived), c.current)
        << c.index << "+" << c.count << " probed " << c.probed << " arrived " << c.arrived;
}

TEST(InputStreamChannelCounts, ReadsClampsAndRefuses) {
  testing::LogCapture logs;
  sim::SimAudioHardware hw;
  EXPECT_EQ(inputStreamChannelCounts(hw, hw.addDevice({"d", "D", 0, 1, {2, 1, 8}})), (std::vector<uint32_t>{2, 1, 8}));

  // The size query under-reports by one buffer: the header still declares 3.
  AudioObjectID dev = hw.addDevice({"d", "D", 0, 1, {2, 1, 8}, -16});
  EXPECT_EQ(inputStreamChannelCounts(hw, dev), (std::vector<uint32_t>{2, 1}));
  EXPECT_TRUE(logs.has("stream-config: device " + std::to_string(dev) +
                       " declared 3 input buffers in 40 bytes returned (room for 2; 40 predicted) \u2014 clamping"));

  auto error = [&](AudioObjectID id) {
    try {
      inputStreamChannelCounts(hw, id);
    } catch (const CaptureError& e) {
      return std::to_string(e.code()) + " " + e.what();
    }
    return std::string("no error");
  };
  EXPECT_EQ(error(0), "-9 stream-config: invalid device id");
  dev = hw.addDevice({"d", "D", 0, 1, {2, 1, 8}, 65560 - 56 + 1});
  EXPECT_EQ(error(dev), "-10 stream-config reported an implausible size (65561 bytes, max 65560) for device " +
                            std::to_string(dev));
}

}  // namespace
}  // namespace ac::capture
