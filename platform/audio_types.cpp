#include "platform/audio_types.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace ac::platform {

StreamFormat floatPCMFormat(double rate, uint32_t channels, bool interleaved) {
  StreamFormat f;
  f.sampleRate = rate;
  f.formatID = kAudioFormatLinearPCM;
  f.formatFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked |
                  (interleaved ? 0 : kAudioFormatFlagIsNonInterleaved);
  f.bytesPerFrame = interleaved ? 4 * channels : 4;
  f.bytesPerPacket = f.bytesPerFrame;
  f.framesPerPacket = 1;
  f.channelsPerFrame = channels;
  f.bitsPerChannel = 32;
  return f;
}

bool operator==(const AudioFormatDescription& a, const AudioFormatDescription& b) {
  return std::memcmp(&a.asbd, &b.asbd, sizeof(StreamFormat)) == 0 && a.layoutTag == b.layoutTag &&
         a.layoutSize == b.layoutSize;
}

OwnedBufferList::OwnedBufferList(uint32_t capacity) : capacity_(capacity) {
  list_ = static_cast<AudioBufferList*>(std::calloc(1, audioBufferListBytes(capacity)));
  if (!list_) throw std::bad_alloc();
  list_->numberBuffers = capacity;
}

OwnedBufferList::~OwnedBufferList() { std::free(list_); }

MediaTime mediaTimeSubtract(MediaTime a, MediaTime b) {
  if (!a.valid || !b.valid) return MediaTime::invalid();
  if (a.timescale == b.timescale) return MediaTime::make(a.value - b.value, a.timescale);
  auto ns = [](MediaTime t) { return static_cast<__int128>(t.value) * 1000000000 / t.timescale; };
  return MediaTime::make(static_cast<int64_t>(ns(a) - ns(b)), 1000000000);
}

OSStatus setDataFromBufferList(SampleBuffer& sb, const AudioBufferList& list) {
  sb.buffers.clear();
  sb.bufferChannels.clear();
  for (uint32_t i = 0; i < list.numberBuffers; ++i) {
    const AudioBuffer& b = list.buffers[i];
    if (b.dataByteSize > 0 && b.data == nullptr) return -12731;  // invalid parameter
    const auto* p = static_cast<const uint8_t*>(b.data);
    sb.buffers.emplace_back(p, p + b.dataByteSize);
    sb.bufferChannels.push_back(b.numberChannels);
  }
  sb.dataReady = true;
  return kNoErr;
}

}  // namespace ac::platform
