// The MPEG-4 file: FFmpeg's MP4 muxer writing a fragmented movie, so the
// file on disk is readable up to its last complete fragment at any moment.
//
// Header first (a movie box with no samples, edited on its way to the disk;
// see mp4_header_editor.h), then one movie fragment per `fragmentSeconds` of
// media, each pushed to the kernel as soon as it is complete; a process
// killed mid-recording loses at most the fragment being built. A fragment is
// cut once every live track has reached the boundary, so each holds all
// tracks up to it even though encoders lag their inputs; a stalled track
// holds the cut back by one interval at most. finish() writes the movie's
// durations into the header in place and syncs the file.
//
// Thread contract: write() may be called from any thread (each track's
// encoder runs on its own queue); it serialises muxer access internally.
// Streams are added and the header written before any write().
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/mp4_header_editor.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace ac::platform::linux_backend {

class FragmentedMuxer {
 public:
  // Creates (truncating) the file at `path`; null with `averror` set when it
  // cannot be created or `fragmentSeconds` is not positive.
  static std::unique_ptr<FragmentedMuxer> create(const std::string& path, double fragmentSeconds, int& averror);
  ~FragmentedMuxer();
  FragmentedMuxer(const FragmentedMuxer&) = delete;
  FragmentedMuxer& operator=(const FragmentedMuxer&) = delete;

  // Adds a track coded as `encoder` describes, shown to players as `name`;
  // returns its index or an error.
  int addStream(const AVCodecContext* encoder, const std::string& name);
  // Writes the header. Every track presents from `startSeconds` of its media
  // on (the encoders' priming before it), and the movie says it was created
  // now.
  int writeHeader(double startSeconds);

  // Writes one packet timed in `timeBase` to `stream`; cuts a fragment when
  // one is due.
  int write(AVPacket* packet, int stream, AVRational timeBase);
  // `stream` gets no more packets; fragments stop waiting for it.
  void endStream(int stream);

  // Writes what is left, the durations into the header, syncs and closes.
  int finish();
  // Closes the file as it stands.
  void close();

 private:
  FragmentedMuxer() = default;
  bool fragmentDue(double& lagging, double& leading) const;
  int cutFragment();
  int ioError() const;
  // libavformat 61 hands a writer its bytes as const.
#if LIBAVFORMAT_VERSION_MAJOR >= 61
  using WrittenBytes = const uint8_t*;
#else
  using WrittenBytes = uint8_t*;
#endif
  static int writeBytes(void* opaque, WrittenBytes data, int size);
  int writeDurations();
  void freeIO();

  struct Progress {
    int64_t primingSamples = 0;  // at `rate`
    int rate = 1;
    int64_t end = 0;  // in the stream's time base
    double endSeconds = 0;
    bool ended = false;
  };

  std::mutex mutex_;
  AVFormatContext* ctx_ = nullptr;
  int fd_ = -1;
  // The header is held back until it is complete, then edited and written.
  bool holdingHeader_ = true;
  std::string header_;
  std::optional<DurationPlan> plan_;
  std::vector<HeaderTrack> tracks_;
  bool open_ = false;
  double fragmentSeconds_ = 0;
  double startSeconds_ = 0;  // of media before the first presented sample
  double nextFragmentAt_ = 0;
  std::vector<Progress> progress_;
};

}  // namespace ac::platform::linux_backend
