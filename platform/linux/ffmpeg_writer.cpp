// The writer seam on FFmpeg: one fragmented MPEG-4 file, one AAC track per
// input in the order the inputs were added.
//
// Status moves unknown → writing → completed | failed | cancelled; the first
// failure's error is the one reported (a refused buffer's error only until
// then: it fails the buffer, not the file). Each input serialises its own track;
// the muxer serialises the file, so the two tracks' queues append in
// parallel and meet only there.
#include <algorithm>
#include <atomic>
#include <mutex>
#include <vector>

#include "platform/linux/backends.h"
#include "platform/linux/ffmpeg_error.h"
#include "platform/linux/ffmpeg_writer_track.h"

namespace ac::platform::linux_backend {
namespace {

// What the writer and its inputs share; inputs may outlive the writer.
struct WriterState {
  std::unique_ptr<FragmentedMuxer> muxer;
  std::atomic<WriterStatus> status{WriterStatus::unknown};
  std::atomic<double> originSeconds{0};
  std::mutex errorMutex;
  std::optional<Error> error;

  bool writing() const { return status.load() == WriterStatus::writing; }

  // A refused buffer is reported until a failure of the file replaces it.
  void noteRefusal(const Error& e) {
    std::lock_guard lock(errorMutex);
    if (writing()) error = e;
  }

  // Only the first failure of a writing (or not yet started) file counts; a
  // cancelled or finished file keeps its status.
  void fail(const Error& e) {
    WriterStatus s = status.load();
    while (s == WriterStatus::unknown || s == WriterStatus::writing) {
      if (status.compare_exchange_weak(s, WriterStatus::failed)) {
        std::lock_guard lock(errorMutex);
        error = e;
        return;
      }
    }
  }

  void failOn(int averror, std::string_view what) {
    if (averror < 0) fail(errorFromAVError(averror, what));
  }
};

class FFmpegWriterInput final : public WriterInput {
 public:
  FFmpegWriterInput(std::shared_ptr<WriterState> state, AudioOutputSettings settings, std::string inputName,
                    std::unique_ptr<WriterTrack> track)
      : name(std::move(inputName)), state_(std::move(state)), settings_(settings), track_(std::move(track)) {}
  const std::string name;

  AudioOutputSettings settings() const override { return settings_; }
  void setExpectsMediaDataInRealTime(bool) override {}

  bool isReadyForMoreMediaData() override { return state_->writing() && !finished_; }

  bool append(const SampleBuffer& sample) override {
    std::lock_guard lock(mutex_);
    if (!added || !state_->writing() || finished_) return false;
    const std::optional<PcmLayout> layout = pcmLayoutFor(sample.format.asbd);
    if (!layout) {
      // One unreadable buffer is refused on its own; the file goes on.
      state_->noteRefusal(Error{kErrorDomain, AVERROR(EINVAL), "unsupported sample format"});
      return false;
    }
    const MediaTime pts = sample.presentationTime();
    std::optional<double> ptsSeconds;
    if (pts.valid) ptsSeconds = pts.seconds() - state_->originSeconds.load();
    const int ret = track_->append(sample, *layout, ptsSeconds);
    state_->failOn(ret, "audio encode");
    return ret >= 0;
  }

  void markAsFinished() override {
    std::lock_guard lock(mutex_);
    if (finished_.exchange(true) || !added) return;
    if (state_->writing()) state_->failOn(track_->finish(), "audio encode");
  }

  // The writer's side. An input is added, if ever, before writing starts.
  bool usable() const { return track_ != nullptr; }
  WriterTrack& track() { return *track_; }
  bool added = false;

 private:
  std::shared_ptr<WriterState> state_;
  const AudioOutputSettings settings_;
  std::mutex mutex_;
  std::unique_ptr<WriterTrack> track_;
  std::atomic<bool> finished_{false};
};

class FFmpegAssetWriter final : public AssetWriter {
 public:
  explicit FFmpegAssetWriter(std::unique_ptr<FragmentedMuxer> muxer) : state_(std::make_shared<WriterState>()) {
    state_->muxer = std::move(muxer);
  }

  // Unfinished, the file is left as it stands: readable to its last fragment.
  ~FFmpegAssetWriter() override { cancelWriting(); }

  bool canApplyOutputSettings(const AudioOutputSettings& settings) override { return AacEncoder::accepts(settings); }

  std::shared_ptr<WriterInput> makeInput(const AudioOutputSettings& settings, const std::string& name) override {
    int averror = 0;
    auto track = WriterTrack::open(settings, averror);
    return std::make_shared<FFmpegWriterInput>(state_, settings, name, std::move(track));
  }

  bool canAddInput(const std::shared_ptr<WriterInput>& input) override {
    auto* ours = dynamic_cast<FFmpegWriterInput*>(input.get());
    return ours && ours->usable() && !ours->added && state_->status.load() == WriterStatus::unknown;
  }

  void addInput(const std::shared_ptr<WriterInput>& input) override {
    if (!canAddInput(input)) return;
    auto ours = std::static_pointer_cast<FFmpegWriterInput>(input);
    ours->added = true;
    inputs_.push_back(std::move(ours));
  }

  bool startWriting() override {
    if (state_->status.load() != WriterStatus::unknown) return false;
    // Every track presents its first sample as late as the most-priming
    // encoder does, so tracks at different rates stay aligned, and the
    // header's edit lists start every track there.
    auto priming = [](FFmpegWriterInput& i) { return i.track().encoder().primingSeconds(); };
    double maxPriming = 0;
    for (auto& i : inputs_) maxPriming = std::max(maxPriming, priming(*i));
    for (size_t k = 0; k < inputs_.size(); ++k) {
      WriterTrack& track = inputs_[k]->track();
      const int stream =
          state_->muxer->addStream(track.encoder().context(), inputs_[k]->name);
      if (stream < 0) {
        state_->failOn(stream, "add track");
        return false;
      }
      track.attach(*state_->muxer, stream, maxPriming - priming(*inputs_[k]));
    }
    const int ret = state_->muxer->writeHeader(maxPriming);
    if (ret < 0) {
      state_->failOn(ret, "write header");
      return false;
    }
    WriterStatus expected = WriterStatus::unknown;
    return state_->status.compare_exchange_strong(expected, WriterStatus::writing);
  }

  void startSession(MediaTime sourceTime) override { state_->originSeconds = sourceTime.seconds(); }

  void finishWriting(std::function<void()> completion) override {
    if (state_->status.load() == WriterStatus::unknown) {
      state_->fail(Error{kErrorDomain, AVERROR(EINVAL), "the file was never started"});
    }
    for (auto& i : inputs_) i->markAsFinished();
    if (state_->writing()) {
      state_->failOn(state_->muxer->finish(), "write trailer");
      WriterStatus expected = WriterStatus::writing;
      state_->status.compare_exchange_strong(expected, WriterStatus::completed);
    } else {
      state_->muxer->close();
    }
    if (completion) completion();
  }

  void cancelWriting() override {
    WriterStatus s = state_->status.load();
    while (s == WriterStatus::unknown || s == WriterStatus::writing) {
      if (state_->status.compare_exchange_weak(s, WriterStatus::cancelled)) break;
    }
    state_->muxer->close();
  }

  WriterStatus status() override { return state_->status.load(); }

  std::optional<Error> error() override {
    std::lock_guard lock(state_->errorMutex);
    return state_->error;
  }

 private:
  std::shared_ptr<WriterState> state_;
  std::vector<std::shared_ptr<FFmpegWriterInput>> inputs_;
};

class FFmpegWriterFactory final : public WriterFactory {
 public:
  FFmpegWriterFactory() { installFFmpegLogRoute(); }

  std::unique_ptr<AssetWriter> makeMPEG4Writer(const std::string& path, MediaTime fragmentInterval,
                                               Error& error) override {
    int averror = 0;
    auto muxer = FragmentedMuxer::create(path, fragmentInterval.seconds(), averror);
    if (!muxer) {
      error = errorFromAVError(averror, "create " + path);
      return nullptr;
    }
    return std::make_unique<FFmpegAssetWriter>(std::move(muxer));
  }
};

}  // namespace

std::unique_ptr<WriterFactory> makeFFmpegWriterFactory() { return std::make_unique<FFmpegWriterFactory>(); }

}  // namespace ac::platform::linux_backend
