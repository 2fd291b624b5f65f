#include "capture/tap_format.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace ac::capture {
namespace {

using platform::StreamFormat;

StreamFormat fmt(double rate, uint32_t ch = 2, uint32_t bpf = 8) {
  StreamFormat f = platform::floatPCMFormat(rate, 2);
  f.channelsPerFrame = ch;
  f.bytesPerFrame = bpf;
  return f;
}

TEST(TapFormat, UsableBounds) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  struct Case {
    StreamFormat f;
    bool usable;
  } cases[] = {
      {fmt(48000), true},  {fmt(8000), true},          {fmt(2147483647.0), true},  {fmt(44100.5), true},
      {fmt(nan), false},   {fmt(inf), false},          {fmt(-48000), false},       {fmt(7999), false},
      {fmt(1.9), false},   {fmt(2147483648.0), false}, {fmt(48000, 0, 8), false},  {fmt(48000, 2, 0), false},
  };
  for (const auto& c : cases)
    EXPECT_EQ(isUsableTapFormat(c.f), c.usable) << c.f.sampleRate << " ch=" << c.f.channelsPerFrame;
}

}  // namespace
}  // namespace ac::capture
