// Peak levels of float PCM buffers, for the diagnostics and statistics.
#pragma once

#include <atomic>
#include <cstddef>
#include <string>

#include "platform/audio_types.h"

namespace ac::capture {

// Largest absolute value among the first `limit` samples of the buffer read
// as 32-bit floats; 0 for a buffer without data. NaNs are ignored.
float maxAbsSample(const platform::AudioBuffer& buffer, size_t limit = SIZE_MAX);

// Raises `peak` to `value` if it is larger; lock-free.
void raisePeak(std::atomic<float>& peak, float value);


}  // namespace ac::capture
