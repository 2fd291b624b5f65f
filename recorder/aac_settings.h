// AAC encoder settings: snapping a source format onto the rates and channel
// counts the encoder takes, the descending fallback list, and building a
// writer input from the first candidate the writer accepts.
//
// Free functions with no state; makeAACWriterInput logs every step down and
// one summary line.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/asset_writer.h"

namespace ac {

// Ascending, in hertz. Nothing above 48000 is ever offered: hi-res sources
// are encoded at 48000.
inline constexpr std::array<double, 9> aacSupportedSampleRates = {8000,  11025, 12000, 16000, 22050,
                                                                  24000, 32000, 44100, 48000};

// Thrown (with kErrorDomain) when the writer refuses every candidate.
inline constexpr int64_t noAACSettingsErrorCode = -7;

struct AACCandidate {
  double rate = 0;
  int channels = 0;
  bool operator==(const AACCandidate&) const = default;
};

// The largest listed rate not above sourceRate, 8000 below the list, and
// 48000 for a rate that is not a finite positive number (a failed read).
double aacSampleRate(double sourceRate);
// 0 or 1 → 1; 2 or more → 2.
int aacChannelCount(uint32_t sourceChannels);
platform::AudioOutputSettings aacOutputSettings(double sourceRate, uint32_t sourceChannels, int bitRate);
// The snapped setting first, then every lower listed rate at the same channel
// count, then (48000, 2) unless it is already in the list.
std::vector<AACCandidate> aacSettingsCandidates(double sourceRate, uint32_t sourceChannels);

struct AACWriterInput {
  std::shared_ptr<platform::WriterInput> input;
  double rate = 0;
  int channels = 0;
  // True when the encoder rate or channel count differs from the source's.
  bool clamped = false;
};

// Asks the writer about each candidate in turn and creates a real-time input
// (not added to the writer) for the first one it accepts. `label` heads the
// log lines ("sys", "mic"); `sourceIsMeasured` says whether the source format
// was read from a device or is a format the program requested. Throws
// CaptureError code -7 when every candidate is refused.
// What players call each track.
inline constexpr const char* systemTrackName = "System audio";
inline constexpr const char* micTrackName = "Microphone";

// The input for track `label` ("sys" or "mic"), named for what it holds.
AACWriterInput makeAACWriterInput(platform::AssetWriter& writer, double sourceRate, uint32_t sourceChannels,
                                  int bitRate, const std::string& label, bool sourceIsMeasured);

}  // namespace ac
