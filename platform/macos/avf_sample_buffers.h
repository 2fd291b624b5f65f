// Core Media sample buffers and the seam's SampleBuffer, both ways: the
// capture output's buffers become SampleBuffers for the core, and the
// core's SampleBuffers become sample buffers for the asset writer.
//
// A format description crosses as its stream description plus the channel
// layout's tag and size. A layout rebuilt from a SampleBuffer carries its tag
// only; a layout given by channel descriptions (tag 0) is not rebuilt.
#pragma once

#include <CoreMedia/CoreMedia.h>

#include <optional>

#include "platform/audio_types.h"

namespace ac::platform::macos {

MediaTime toMediaTime(CMTime time);
CMTime toCMTime(MediaTime time);

std::optional<AudioFormatDescription> toFormatDescription(CMFormatDescriptionRef description);

// Copies format, timing, sample count and audio of `buffer` into `out`.
// Returns the status of the first Core Media call that failed.
OSStatus copySampleBuffer(CMSampleBufferRef buffer, SampleBuffer& out);

// A new sample buffer holding a copy of `sample`'s audio; the caller
// releases it. Returns the status of the first Core Media call that failed.
OSStatus makeSampleBuffer(const SampleBuffer& sample, CMSampleBufferRef& out);

}  // namespace ac::platform::macos
