#include "platform/macos/avf_sample_buffers.h"

#include <cstddef>
#include <memory>
#include <vector>

#include "platform/macos/core_audio_types.h"

namespace ac::platform::macos {
namespace {

// Releases a Core Foundation reference at the end of a scope.
template <class Ref>
struct Released {
  Ref ref = nullptr;
  ~Released() {
    if (ref) CFRelease(ref);
  }
};

constexpr size_t tagOnlyLayoutBytes = offsetof(AudioChannelLayout, mChannelDescriptions);

}  // namespace

MediaTime toMediaTime(CMTime time) {
  if (!CMTIME_IS_NUMERIC(time)) return MediaTime::invalid();
  return MediaTime::make(time.value, time.timescale);
}

CMTime toCMTime(MediaTime time) { return time.valid ? CMTimeMake(time.value, time.timescale) : kCMTimeInvalid; }

std::optional<AudioFormatDescription> toFormatDescription(CMFormatDescriptionRef description) {
  if (!description) return std::nullopt;
  const AudioStreamBasicDescription* asbd = CMAudioFormatDescriptionGetStreamBasicDescription(description);
  if (!asbd) return std::nullopt;
  AudioFormatDescription out;
  out.asbd = seamFormat(*asbd);
  size_t layoutSize = 0;
  if (const AudioChannelLayout* layout = CMAudioFormatDescriptionGetChannelLayout(description, &layoutSize)) {
    out.layoutTag = layout->mChannelLayoutTag;
    out.layoutSize = static_cast<uint32_t>(layoutSize);
  }
  return out;
}

OSStatus copySampleBuffer(CMSampleBufferRef buffer, SampleBuffer& out) {
  if (auto format = toFormatDescription(CMSampleBufferGetFormatDescription(buffer))) out.format = *format;

  CMItemCount entries = 0;
  if (CMSampleBufferGetSampleTimingInfoArray(buffer, 0, nullptr, &entries) == noErr && entries > 0) {
    std::vector<CMSampleTimingInfo> timing(static_cast<size_t>(entries));
    OSStatus status = CMSampleBufferGetSampleTimingInfoArray(buffer, entries, timing.data(), &entries);
    if (status != noErr) return status;
    out.timing.clear();
    for (const CMSampleTimingInfo& t : timing)
      out.timing.push_back({toMediaTime(t.duration), toMediaTime(t.presentationTimeStamp),
                            toMediaTime(t.decodeTimeStamp)});
  }
  out.numSamples = CMSampleBufferGetNumSamples(buffer);
  out.dataReady = CMSampleBufferDataIsReady(buffer);
  if (!out.dataReady) return noErr;

  const uint32_t flags = kCMSampleBufferFlag_AudioBufferList_Assure16ByteAlignment;
  size_t needed = 0;
  OSStatus status = CMSampleBufferGetAudioBufferListWithRetainedBlockBuffer(buffer, &needed, nullptr, 0, nullptr,
                                                                           nullptr, flags, nullptr);
  if (status != noErr) return status;
  std::vector<std::max_align_t> storage(needed / sizeof(std::max_align_t) + 1);
  auto* list = reinterpret_cast<::AudioBufferList*>(storage.data());
  Released<CMBlockBufferRef> block;
  status = CMSampleBufferGetAudioBufferListWithRetainedBlockBuffer(buffer, nullptr, list, needed, kCFAllocatorDefault,
                                                                   kCFAllocatorDefault, flags, &block.ref);
  if (status != noErr) return status;
  return setDataFromBufferList(out, *seamBufferList(list));
}

OSStatus makeSampleBuffer(const SampleBuffer& sample, CMSampleBufferRef& out) {
  out = nullptr;
  const AudioStreamBasicDescription asbd = coreAudioFormat(sample.format.asbd);
  AudioChannelLayout layout{};
  layout.mChannelLayoutTag = sample.format.layoutTag;
  const bool withLayout = sample.format.layoutTag != kAudioChannelLayoutTag_UseChannelDescriptions;
  Released<CMAudioFormatDescriptionRef> format;
  OSStatus status = CMAudioFormatDescriptionCreate(kCFAllocatorDefault, &asbd, withLayout ? tagOnlyLayoutBytes : 0,
                                                   withLayout ? &layout : nullptr, 0, nullptr, nullptr, &format.ref);
  if (status != noErr) return status;

  std::vector<CMSampleTimingInfo> timing;
  for (const SampleTiming& t : sample.timing)
    timing.push_back({toCMTime(t.duration), toCMTime(t.presentationTime), toCMTime(t.decodeTime)});
  Released<CMSampleBufferRef> buffer;
  status = CMSampleBufferCreate(kCFAllocatorDefault, nullptr, false, nullptr, nullptr, format.ref,
                                static_cast<CMItemCount>(sample.numSamples), static_cast<CMItemCount>(timing.size()),
                                timing.empty() ? nullptr : timing.data(), 0, nullptr, &buffer.ref);
  if (status != noErr) return status;

  if (sample.dataReady) {
    OwnedBufferList list(static_cast<uint32_t>(sample.buffers.size()));
    for (size_t i = 0; i < sample.buffers.size(); ++i) {
      auto& b = list.get()->buffers[i];
      b.numberChannels = i < sample.bufferChannels.size() ? sample.bufferChannels[i] : 0;
      b.dataByteSize = static_cast<uint32_t>(sample.buffers[i].size());
      // Only read: the call copies the audio into the sample buffer.
      b.data = const_cast<uint8_t*>(sample.buffers[i].data());
    }
    status = CMSampleBufferSetDataBufferFromAudioBufferList(buffer.ref, kCFAllocatorDefault, kCFAllocatorDefault, 0,
                                                            coreAudioBufferList(list.get()));
    if (status != noErr) return status;
  }
  out = buffer.ref;
  buffer.ref = nullptr;
  return noErr;
}

}  // namespace ac::platform::macos
