#include "capture/tap_format.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace ac::capture {
namespace {

using platform::AudioObjectID;

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
      {fmt(48000), true},       {fmt(44100), true},      {fmt(96000), true},      {fmt(8000), true},
      {fmt(2147483647.0), true}, {fmt(44100.5), true},   {fmt(nan), false},       {fmt(inf), false},
      {fmt(-inf), false},       {fmt(-48000), false},    {fmt(0.5), false},       {fmt(1.9), false},
      {fmt(7999), false},       {fmt(2147483648.0), false}, {fmt(48000, 0, 8), false}, {fmt(48000, 2, 0), false},
  };
  for (const auto& c : cases)
    EXPECT_EQ(isUsableTapFormat(c.f), c.usable) << c.f.sampleRate << " ch=" << c.f.channelsPerFrame;
}

TEST(TapFormat, EquivalenceIgnoresOnlyTheReservedField) {
  const StreamFormat base = fmt(48000);
  EXPECT_TRUE(asbdEquivalent(base, base));
  StreamFormat reserved = base;
  reserved.reserved = 7;
  EXPECT_TRUE(asbdEquivalent(base, reserved));

  std::vector<void (*)(StreamFormat&)> moves = {
      [](StreamFormat& f) { f.sampleRate = 44100; },     [](StreamFormat& f) { f.channelsPerFrame = 1; },
      [](StreamFormat& f) { f.bytesPerFrame = 4; },      [](StreamFormat& f) { f.bitsPerChannel = 16; },
      [](StreamFormat& f) { f.formatFlags ^= 1; },       [](StreamFormat& f) { f.formatID = 1; },
      [](StreamFormat& f) { f.framesPerPacket = 2; },    [](StreamFormat& f) { f.bytesPerPacket = 16; },
  };
  for (size_t i = 0; i < moves.size(); ++i) {
    StreamFormat moved = base;
    moves[i](moved);
    EXPECT_FALSE(asbdEquivalent(base, moved)) << "field " << i;
  }
}

}  // namespace
}  // namespace ac::capture
