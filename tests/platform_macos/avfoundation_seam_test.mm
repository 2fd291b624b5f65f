// The AVFoundation side: settings dictionaries, sample buffers both ways,
// and errors passing through with their domains.
#import <AVFoundation/AVFoundation.h>

#include <gtest/gtest.h>

#include <cstring>

#include "platform/macos/avf_sample_buffers.h"
#include "platform/macos/avf_settings.h"
#include "platform/macos/cf_convert.h"

namespace {

namespace p = ac::platform;
using namespace ac::platform::macos;

bool isDouble(id value) { return CFNumberIsFloatType((__bridge CFNumberRef)value); }
bool isBool(id value, bool expected) {
  return CFGetTypeID((__bridge CFTypeRef)value) == CFBooleanGetTypeID() && [value boolValue] == expected;
}

TEST(WriterSettings, ExactlyFourKeysWithTheRateAsADouble) {
  NSDictionary* d = writerSettingsDictionary({p::kAudioFormatMPEG4AAC, 44100, 2, 128000});
  EXPECT_EQ(d.count, 4u);
  EXPECT_EQ([d[AVFormatIDKey] unsignedIntValue], ::kAudioFormatMPEG4AAC);
  EXPECT_TRUE(isDouble(d[AVSampleRateKey]));
  EXPECT_EQ([d[AVSampleRateKey] doubleValue], 44100.0);
  EXPECT_FALSE(isDouble(d[AVNumberOfChannelsKey]));
  EXPECT_EQ([d[AVNumberOfChannelsKey] intValue], 2);
  EXPECT_EQ([d[AVEncoderBitRateKey] intValue], 128000);
  EXPECT_EQ(writerSettingsFrom(d), (p::AudioOutputSettings{p::kAudioFormatMPEG4AAC, 44100, 2, 128000}));
}

TEST(CaptureSettings, TheMicrophoneFormatInSevenKeys) {
  NSDictionary* d = captureSettingsDictionary(p::CaptureAudioSettings{});
  EXPECT_EQ(d.count, 7u);
  EXPECT_EQ([d[AVFormatIDKey] unsignedIntValue], ::kAudioFormatLinearPCM);
  EXPECT_EQ([d[AVSampleRateKey] doubleValue], 48000.0);
  EXPECT_EQ([d[AVNumberOfChannelsKey] intValue], 1);
  EXPECT_EQ([d[AVLinearPCMBitDepthKey] intValue], 32);
  EXPECT_TRUE(isBool(d[AVLinearPCMIsFloatKey], true));
  EXPECT_TRUE(isBool(d[AVLinearPCMIsBigEndianKey], false));
  EXPECT_TRUE(isBool(d[AVLinearPCMIsNonInterleaved], false));
  p::CaptureAudioSettings back = captureSettingsFrom(d);
  EXPECT_TRUE(back.isFloat && !back.isBigEndian && !back.isNonInterleaved && back.bitDepth == 32);
}

p::SampleBuffer stereoSample(uint32_t layoutTag) {
  p::SampleBuffer s;
  s.format.asbd = p::floatPCMFormat(48000, 2);
  s.format.layoutTag = layoutTag;
  s.timing = {{p::MediaTime::make(1, 48000), p::MediaTime::make(123456789, 1000000000), p::MediaTime::invalid()}};
  s.numSamples = 4;
  s.dataReady = true;
  s.buffers = {std::vector<uint8_t>(4 * 8)};
  for (size_t i = 0; i < s.buffers[0].size(); ++i) s.buffers[0][i] = uint8_t(i * 7);
  s.bufferChannels = {2};
  return s;
}

TEST(SampleBuffers, ARoundTripThroughCoreMediaKeepsFormatTimingAndAudio) {
  for (uint32_t tag : {0u, uint32_t(kAudioChannelLayoutTag_Stereo)}) {
    const p::SampleBuffer in = stereoSample(tag);
    CMSampleBufferRef buffer = nullptr;
    ASSERT_EQ(makeSampleBuffer(in, buffer), noErr);
    p::SampleBuffer out;
    EXPECT_EQ(copySampleBuffer(buffer, out), noErr);
    CFRelease(buffer);

    EXPECT_EQ(std::memcmp(&out.format.asbd, &in.format.asbd, sizeof in.format.asbd), 0);
    EXPECT_EQ(out.format.layoutTag, tag);
    if (tag) EXPECT_GE(out.format.layoutSize, offsetof(AudioChannelLayout, mChannelDescriptions));
    ASSERT_EQ(out.timing.size(), 1u);
    EXPECT_EQ(out.timing[0].presentationTime, in.timing[0].presentationTime);
    EXPECT_EQ(out.timing[0].duration, in.timing[0].duration);
    EXPECT_FALSE(out.timing[0].decodeTime.valid);
    EXPECT_EQ(out.numSamples, 4);
    EXPECT_TRUE(out.dataReady);
    EXPECT_EQ(out.buffers, in.buffers);
    EXPECT_EQ(out.bufferChannels, in.bufferChannels);
  }
}

TEST(Errors, DomainsCodesAndDescriptionsPassThrough) {
  EXPECT_TRUE([AVFoundationErrorDomain isEqualToString:@(p::kCaptureErrorDomain)]);
  EXPECT_TRUE([NSPOSIXErrorDomain isEqualToString:@(p::kPOSIXErrorDomain)]);
  EXPECT_TRUE([NSCocoaErrorDomain isEqualToString:@(p::kCocoaErrorDomain)]);
  NSError* reset = [NSError errorWithDomain:AVFoundationErrorDomain
                                       code:-11819  // AVErrorMediaServicesWereReset: named for iOS only, sent on macOS too
                                   userInfo:@{NSLocalizedDescriptionKey : @"Media services were reset."}];
  EXPECT_EQ(toError(reset), (ac::Error{"AVFoundationErrorDomain", -11819, "Media services were reset."}));
  EXPECT_FALSE(toOptionalError(nil).has_value());
}

}  // namespace
