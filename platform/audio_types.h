// Audio value types shared by the core and every backend. Layouts follow the
// platform audio APIs so a backend can pass them through untouched.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ac::platform {

// A platform status code: 0 is success, anything else is the platform's own
// failure code, passed through for logs; the core compares it only with 0
// and the constants below. On macOS it is the Core Audio / Core Media
// OSStatus. On Linux it is a PulseAudio error (PA_ERR_*, positive and
// unchanged, so pa_strerror() reads it) or one of the four-character codes
// of platform/linux/pulse_status.h for a refused object or property, which
// match the macOS values. Writer failures are errors, not statuses.
using OSStatus = int32_t;
inline constexpr OSStatus kNoErr = 0;
// Returned by a backend for an operation it does not implement.
inline constexpr OSStatus kUnimplementedErr = -4;

using AudioObjectID = uint32_t;
inline constexpr AudioObjectID kAudioObjectUnknown = 0;
inline constexpr AudioObjectID kAudioObjectSystemObject = 1;

constexpr uint32_t fourCC(const char (&s)[5]) {
  return (uint32_t(uint8_t(s[0])) << 24) | (uint32_t(uint8_t(s[1])) << 16) |
         (uint32_t(uint8_t(s[2])) << 8) | uint32_t(uint8_t(s[3]));
}
inline constexpr uint32_t kAudioFormatLinearPCM = fourCC("lpcm");
inline constexpr uint32_t kAudioFormatMPEG4AAC = fourCC("aac ");

inline constexpr uint32_t kAudioFormatFlagIsFloat = 1u << 0;
inline constexpr uint32_t kAudioFormatFlagIsBigEndian = 1u << 1;
inline constexpr uint32_t kAudioFormatFlagIsSignedInteger = 1u << 2;
inline constexpr uint32_t kAudioFormatFlagIsPacked = 1u << 3;
inline constexpr uint32_t kAudioFormatFlagIsNonInterleaved = 1u << 5;

// Same fields and order as the platform's stream basic description.
struct StreamFormat {
  double sampleRate = 0;
  uint32_t formatID = 0;
  uint32_t formatFlags = 0;
  uint32_t bytesPerPacket = 0;
  uint32_t framesPerPacket = 0;
  uint32_t bytesPerFrame = 0;
  uint32_t channelsPerFrame = 0;
  uint32_t bitsPerChannel = 0;
  uint32_t reserved = 0;
};

// 32-bit float linear PCM, packed; interleaved unless told otherwise.
StreamFormat floatPCMFormat(double rate, uint32_t channels, bool interleaved = true);

// A format description: the stream description plus the channel layout's
// tag and size, which are all the diagnostics look at.
struct AudioFormatDescription {
  StreamFormat asbd;
  uint32_t layoutTag = 0;
  uint32_t layoutSize = 0;
};
bool operator==(const AudioFormatDescription& a, const AudioFormatDescription& b);

// Buffer lists with the platform's 64-bit layout: an 8-byte header, then 16
// bytes per buffer.
struct AudioBuffer {
  uint32_t numberChannels;
  uint32_t dataByteSize;
  void* data;
};
struct AudioBufferList {
  uint32_t numberBuffers;
  AudioBuffer buffers[1];  // numberBuffers entries follow in memory
};
static_assert(offsetof(AudioBufferList, buffers) == 8);
static_assert(sizeof(AudioBuffer) == 16);

inline constexpr size_t audioBufferListBytes(size_t buffers) {
  return 8 + 16 * (buffers == 0 ? 1 : buffers);
}

// An owned, heap-allocated buffer list with room for `capacity` buffers.
class OwnedBufferList {
 public:
  explicit OwnedBufferList(uint32_t capacity);
  ~OwnedBufferList();
  OwnedBufferList(const OwnedBufferList&) = delete;
  OwnedBufferList& operator=(const OwnedBufferList&) = delete;
  AudioBufferList* get() { return list_; }
  uint32_t capacity() const { return capacity_; }

 private:
  AudioBufferList* list_;
  uint32_t capacity_;
};

// Only hostTime is read by the core.
struct AudioTimeStamp {
  double sampleTime = 0;
  uint64_t hostTime = 0;
  uint32_t flags = 0;
};

// A rational media time; timescale 0 or valid=false means invalid.
struct MediaTime {
  int64_t value = 0;
  int32_t timescale = 0;
  bool valid = false;

  static MediaTime make(int64_t value, int32_t timescale) { return {value, timescale, timescale > 0}; }
  static MediaTime invalid() { return {}; }
  double seconds() const { return valid && timescale ? double(value) / timescale : 0; }
  bool operator==(const MediaTime&) const = default;
};
// a - b, exact when both share a timescale; else in nanoseconds.
MediaTime mediaTimeSubtract(MediaTime a, MediaTime b);

struct SampleTiming {
  MediaTime duration;
  MediaTime presentationTime;
  MediaTime decodeTime;
};

// A media sample buffer: a format, timing entries, a sample (frame) count and
// a copy of the audio, one byte vector per buffer of the source list.
struct SampleBuffer {
  AudioFormatDescription format;
  std::vector<SampleTiming> timing;
  int64_t numSamples = 0;
  bool dataReady = false;
  std::vector<std::vector<uint8_t>> buffers;
  std::vector<uint32_t> bufferChannels;

  MediaTime presentationTime() const {
    return timing.empty() ? MediaTime::invalid() : timing.front().presentationTime;
  }
};

// Copies the audio of every buffer of `list` into `sb` (the platform's
// "set data buffer from audio buffer list"). Fails with a non-zero status
// when a buffer claims bytes but has no data.
OSStatus setDataFromBufferList(SampleBuffer& sb, const AudioBufferList& list);

}  // namespace ac::platform
