// The seam's audio value types against Core Audio's own: the buffer list and
// the stream description share one layout, checked here at compile time, so
// they cross the seam by a cast; the time stamp does not (the seam keeps
// only its head), so it is copied field by field.
#pragma once

#include <CoreAudio/CoreAudio.h>

#include <cstddef>
#include <cstring>

#include "platform/audio_types.h"

namespace ac::platform::macos {

static_assert(sizeof(platform::AudioBuffer) == sizeof(::AudioBuffer));
static_assert(offsetof(platform::AudioBuffer, numberChannels) == offsetof(::AudioBuffer, mNumberChannels));
static_assert(offsetof(platform::AudioBuffer, dataByteSize) == offsetof(::AudioBuffer, mDataByteSize));
static_assert(offsetof(platform::AudioBuffer, data) == offsetof(::AudioBuffer, mData));
static_assert(sizeof(platform::AudioBufferList) == sizeof(::AudioBufferList));
static_assert(offsetof(platform::AudioBufferList, numberBuffers) == offsetof(::AudioBufferList, mNumberBuffers));
static_assert(offsetof(platform::AudioBufferList, buffers) == offsetof(::AudioBufferList, mBuffers));

static_assert(sizeof(platform::StreamFormat) == sizeof(::AudioStreamBasicDescription));
static_assert(offsetof(platform::StreamFormat, sampleRate) == offsetof(::AudioStreamBasicDescription, mSampleRate));
static_assert(offsetof(platform::StreamFormat, formatID) == offsetof(::AudioStreamBasicDescription, mFormatID));
static_assert(offsetof(platform::StreamFormat, formatFlags) == offsetof(::AudioStreamBasicDescription, mFormatFlags));
static_assert(offsetof(platform::StreamFormat, bytesPerPacket) ==
              offsetof(::AudioStreamBasicDescription, mBytesPerPacket));
static_assert(offsetof(platform::StreamFormat, framesPerPacket) ==
              offsetof(::AudioStreamBasicDescription, mFramesPerPacket));
static_assert(offsetof(platform::StreamFormat, bytesPerFrame) ==
              offsetof(::AudioStreamBasicDescription, mBytesPerFrame));
static_assert(offsetof(platform::StreamFormat, channelsPerFrame) ==
              offsetof(::AudioStreamBasicDescription, mChannelsPerFrame));
static_assert(offsetof(platform::StreamFormat, bitsPerChannel) ==
              offsetof(::AudioStreamBasicDescription, mBitsPerChannel));

static_assert(platform::kAudioFormatLinearPCM == ::kAudioFormatLinearPCM);
static_assert(platform::kAudioFormatMPEG4AAC == ::kAudioFormatMPEG4AAC);
static_assert(platform::kAudioFormatFlagIsFloat == ::kAudioFormatFlagIsFloat);
static_assert(platform::kAudioFormatFlagIsBigEndian == ::kAudioFormatFlagIsBigEndian);
static_assert(platform::kAudioFormatFlagIsSignedInteger == ::kAudioFormatFlagIsSignedInteger);
static_assert(platform::kAudioFormatFlagIsPacked == ::kAudioFormatFlagIsPacked);
static_assert(platform::kAudioFormatFlagIsNonInterleaved == ::kAudioFormatFlagIsNonInterleaved);
static_assert(platform::kAudioObjectSystemObject == ::kAudioObjectSystemObject);
static_assert(platform::kAudioObjectUnknown == ::kAudioObjectUnknown);

inline const platform::AudioBufferList* seamBufferList(const ::AudioBufferList* list) {
  return reinterpret_cast<const platform::AudioBufferList*>(list);
}
inline const ::AudioBufferList* coreAudioBufferList(const platform::AudioBufferList* list) {
  return reinterpret_cast<const ::AudioBufferList*>(list);
}

inline ::AudioStreamBasicDescription coreAudioFormat(const platform::StreamFormat& format) {
  ::AudioStreamBasicDescription asbd;
  std::memcpy(&asbd, &format, sizeof asbd);
  return asbd;
}
inline platform::StreamFormat seamFormat(const ::AudioStreamBasicDescription& asbd) {
  platform::StreamFormat format;
  std::memcpy(&format, &asbd, sizeof format);
  return format;
}

inline platform::AudioTimeStamp seamTimeStamp(const ::AudioTimeStamp& time) {
  platform::AudioTimeStamp out;
  out.sampleTime = time.mSampleTime;
  out.hostTime = time.mHostTime;
  out.flags = time.mFlags;
  return out;
}

}  // namespace ac::platform::macos
