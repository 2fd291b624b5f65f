#include "recorder/aac_settings.h"

#include <algorithm>
#include <cmath>

#include "support/error.h"
#include "support/log.h"

namespace ac {

double aacSampleRate(double sourceRate) {
  if (!std::isfinite(sourceRate) || sourceRate <= 0) return 48000;
  double chosen = 8000;
  for (double rate : aacSupportedSampleRates)
    if (rate <= sourceRate) chosen = rate;
  return chosen;
}

int aacChannelCount(uint32_t sourceChannels) { return sourceChannels >= 2 ? 2 : 1; }

platform::AudioOutputSettings aacOutputSettings(double sourceRate, uint32_t sourceChannels, int bitRate) {
  platform::AudioOutputSettings s;
  s.formatID = platform::kAudioFormatMPEG4AAC;
  s.sampleRate = aacSampleRate(sourceRate);
  s.channels = aacChannelCount(sourceChannels);
  s.bitRate = bitRate;
  return s;
}

std::vector<AACCandidate> aacSettingsCandidates(double sourceRate, uint32_t sourceChannels) {
  const AACCandidate first{aacSampleRate(sourceRate), aacChannelCount(sourceChannels)};
  std::vector<AACCandidate> out{first};
  for (auto it = aacSupportedSampleRates.rbegin(); it != aacSupportedSampleRates.rend(); ++it)
    if (*it < first.rate) out.push_back({*it, first.channels});
  const AACCandidate backstop{48000, 2};
  if (std::find(out.begin(), out.end(), backstop) == out.end()) out.push_back(backstop);
  return out;
}

AACWriterInput makeAACWriterInput(platform::AssetWriter& writer, double sourceRate, uint32_t sourceChannels,
                                  int bitRate, const std::string& label, bool sourceIsMeasured) {
  std::optional<AACCandidate> accepted;
  platform::AudioOutputSettings settings;
  for (const AACCandidate& c : aacSettingsCandidates(sourceRate, sourceChannels)) {
    settings = aacOutputSettings(c.rate, static_cast<uint32_t>(c.channels), bitRate);
    if (writer.canApplyOutputSettings(settings)) {
      accepted = c;
      break;
    }
    log(label + " aac: encoder rejected sr=" + formatDouble(c.rate) + " ch=" + std::to_string(c.channels) +
        " — stepping down");
  }
  if (!accepted)
    throw CaptureError(noAACSettingsErrorCode, "no supported AAC settings for " + label +
                                                   " (source sr=" + formatDouble(sourceRate) +
                                                   " ch=" + std::to_string(sourceChannels) + ")");

  AACWriterInput result;
  result.input = writer.makeInput(settings, label == "mic" ? micTrackName : systemTrackName);
  if (!result.input) throw CaptureError(noAACSettingsErrorCode, "writer could not create the " + label + " input");
  result.input->setExpectsMediaDataInRealTime(true);
  result.rate = accepted->rate;
  result.channels = accepted->channels;
  result.clamped = !(result.rate == sourceRate && static_cast<int64_t>(result.channels) == int64_t(sourceChannels));

  const char* origin = sourceIsMeasured ? "source" : "requested PCM";
  const char* verdict = result.clamped ? "clamped" : (sourceIsMeasured ? "native" : "fixed");
  log(label + " aac: " + origin + " sr=" + formatDouble(sourceRate) + " ch=" + std::to_string(sourceChannels) +
      " → encode sr=" + formatDouble(result.rate) + " ch=" + std::to_string(result.channels) + " (" + verdict + ")");
  return result;
}

}  // namespace ac
