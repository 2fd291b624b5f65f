#include "capture/sample_level.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

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

std::string formatFloat(float v) {
  // Shortest text that reads back as the same float, with at least one
  // fractional digit.
  if (std::isnan(v)) return "nan";
  if (std::isinf(v)) return v > 0 ? "inf" : "-inf";
  char buf[64];
  float mag = std::fabs(v);
  if (mag == 0 || (mag >= 1e-4f && mag < 1e16f)) {
    for (int decimals = 1; decimals <= 12; ++decimals) {
      std::snprintf(buf, sizeof buf, "%.*f", decimals, double(v));
      if (std::strtof(buf, nullptr) == v) return buf;
    }
  }
  for (int precision = 1; precision <= 9; ++precision) {
    std::snprintf(buf, sizeof buf, "%.*g", precision, double(v));
    if (std::strtof(buf, nullptr) == v) break;
  }
  return buf;
}

}  // namespace ac::capture
