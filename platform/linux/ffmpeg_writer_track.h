// One AAC track of the file: source PCM placed on the track's time line,
// converted, encoded and handed to the muxer.
//
// A gap in the time line is filled with silence a bounded piece per append
// (each a turn of the input's queue), never in one burst: audio that comes
// while silence is still owed waits, copied, behind it.
//
// Not thread-safe: the owning writer input serialises every call.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "platform/asset_writer.h"
#include "platform/linux/ffmpeg_aac_encoder.h"
#include "platform/linux/ffmpeg_fragmented_muxer.h"
#include "platform/linux/ffmpeg_pcm_converter.h"
#include "platform/linux/ffmpeg_track_timeline.h"

namespace ac::platform::linux_backend {

class WriterTrack {
 public:
  // Null with `averror` set when the encoder refuses the settings.
  static std::unique_ptr<WriterTrack> open(const AudioOutputSettings& settings, int& averror);

  const AacEncoder& encoder() const { return *encoder_; }

  // Binds the track to its stream before the header is written. The track's
  // first sample presents `leadInSeconds` late, so tracks whose encoders
  // prime by different durations still start together.
  void attach(FragmentedMuxer& muxer, int stream, double leadInSeconds);

  // Appends `sample`, already known to read as `layout`, presenting at
  // `ptsSeconds` on the session's time line (nothing: right after the last).
  int append(const SampleBuffer& sample, const PcmLayout& layout, std::optional<double> ptsSeconds);

  // Encodes what is left and flushes the encoder; nothing may follow.
  int finish();

  // Silence converted per append while a gap is being filled.
  static constexpr double kSilenceSecondsPerAppend = 0.25;

 private:
  WriterTrack() = default;

  // Silence still owed, then the audio that came after it (source layout).
  struct Owed {
    int64_t silenceFrames = 0;
    std::vector<std::vector<uint8_t>> planes;
    int64_t frames = 0;
  };
  // Converts owed silence up to `budgetFrames` and the audio behind it.
  int payOwed(int64_t budgetFrames);

  std::unique_ptr<AacEncoder> encoder_;
  std::unique_ptr<PcmConverter> converter_;
  TrackTimeline timeline_;
  FragmentedMuxer* muxer_ = nullptr;
  int stream_ = -1;
  std::vector<const uint8_t*> planes_;
  std::deque<Owed> owed_;
};

}  // namespace ac::platform::linux_backend
