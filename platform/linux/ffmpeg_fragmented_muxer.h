// The MPEG-4 file: FFmpeg's MP4 muxer writing a fragmented movie, so the
// file on disk is readable up to its last complete fragment at any moment.
//
// Header first (an empty movie box), then one movie fragment per
// `fragmentSeconds` of media, each pushed to the kernel as soon as it is
// complete; a process killed mid-recording loses at most the fragment being
// built. A fragment is cut once every live track has reached the boundary, so
// each holds all tracks up to it even though encoders lag their inputs; a
// stalled track holds the cut back by one interval at most. Without a
// fragment interval the file is a plain MP4 whose movie box is written at
// finish().
//
// Thread contract: write() may be called from any thread (each track's
// encoder runs on its own queue); it serialises muxer access internally.
// Streams are added and the header written before any write().
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace ac::platform::linux_backend {

class FragmentedMuxer {
 public:
  // Creates (truncating) the file at `path`; null with `averror` set when it
  // cannot be created. `fragmentSeconds` <= 0 writes an unfragmented file.
  static std::unique_ptr<FragmentedMuxer> create(const std::string& path, double fragmentSeconds, int& averror);
  ~FragmentedMuxer();
  FragmentedMuxer(const FragmentedMuxer&) = delete;
  FragmentedMuxer& operator=(const FragmentedMuxer&) = delete;

  // Adds a track coded as `encoder` describes; returns its index or an error.
  int addStream(const AVCodecContext* encoder);
  int writeHeader();

  // Writes one packet timed in `timeBase` to `stream`; cuts a fragment when
  // one is due.
  int write(AVPacket* packet, int stream, AVRational timeBase);
  // `stream` gets no more packets; fragments stop waiting for it.
  void endStream(int stream);

  // Writes what is left and the trailer, then closes the file.
  int finish();
  // Closes the file as it stands, without a trailer.
  void close();

 private:
  FragmentedMuxer() = default;
  bool fragmentDue(double& lagging, double& leading) const;
  int cutFragment();
  int ioError() const;

  struct Progress {
    double endSeconds = 0;
    bool ended = false;
  };

  std::mutex mutex_;
  AVFormatContext* ctx_ = nullptr;
  bool open_ = false;
  double fragmentSeconds_ = 0;
  double nextFragmentAt_ = 0;
  std::vector<Progress> progress_;
};

}  // namespace ac::platform::linux_backend
