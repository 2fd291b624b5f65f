// Pure helpers of the microphone sample path: the capture output's PCM
// format, peak measurement, retiming onto the file's time line, and the
// one-line format description the logs use.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/mic_capture.h"

namespace ac {

// 48 kHz mono float32, little-endian, interleaved, whatever the device
// delivers natively; the mic track's encoder is sized for exactly this.
platform::CaptureAudioSettings micCaptureAudioSettings();
// Sets the output's audio settings to micCaptureAudioSettings() and returns it.
std::shared_ptr<platform::AudioDataOutput> makeMicCaptureOutput(std::shared_ptr<platform::AudioDataOutput> output);

// The microphone track is mono: a float buffer delivered with more channels
// (a backend whose server would sum rather than average them) is mixed down
// in place to the average of its channels, so a tone keeps its level and
// nothing clips that did not clip at the source. Other buffers are left as
// they are. mixedDownFormat is the format such a buffer has afterwards.
platform::AudioFormatDescription mixedDownFormat(const platform::AudioFormatDescription& format);
void mixDownToMono(platform::SampleBuffer& buffer);

// Peak absolute sample of the first buffer, reading at most 1024 samples (as
// float32 when the format says float, else signed 16-bit scaled by 1/32768);
// 0 when there is no data. Feeds a meter and a log line, not the recording.
float micPeakAmplitude(const platform::SampleBuffer& buffer);

// Makes every timing entry present at `time`, decode time invalid, durations
// kept. False (buffer untouched) when the time is invalid or there is no
// timing.
bool retime(platform::SampleBuffer& buffer, platform::MediaTime time);

// "sr=48000.0 ch=1 id=1819304813 flags=0x9 bpf=4 bits=32 layout=0/0", or
// "unavailable" when there is no description.
std::string micFormatDiagnostic(const std::optional<platform::AudioFormatDescription>& format);

}  // namespace ac
