#include "capture/sample_level.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/log.h"

namespace ac::capture {

float maxAbsSample(const platform::AudioBuffer& buffer, size_t limit) {
  if (!buffer.data) return 0;
  const size_t samples = std::min<size_t>(buffer.dataByteSize / sizeof(float), limit);
  const auto* bytes = static_cast<const unsigned char*>(buffer.data);
  float peak = 0;
  for (size_t i = 0; i < samples; ++i) {
    float v;
    std::memcpy(&v, bytes + i * sizeof v, sizeof v);  // the data need not be float-aligned
    v = std::fabs(v);
    if (v > peak) peak = v;
  }
  return peak;
}

void raisePeak(std::atomic<float>& peak, float value) {
  float current = peak.load(std::memory_order_relaxed);
  while (value > current && !peak.compare_exchange_weak(current, value, std::memory_order_relaxed)) {
  }
}

}  // namespace ac::capture
