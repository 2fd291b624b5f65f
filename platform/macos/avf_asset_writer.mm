// The writer seam on AVAssetWriter: an MPEG-4 file with movie fragments,
// one AAC input per track. Each SampleBuffer is appended as a new Core
// Media sample buffer holding a copy of its audio (avf_sample_buffers.h);
// one Core Media will not build fails its append with no writer error.
// Statuses and errors are the writer's own.
#import <AVFoundation/AVFoundation.h>

#include "platform/macos/avf_sample_buffers.h"
#include "platform/macos/avf_settings.h"
#include "platform/macos/backends.h"
#include "platform/macos/cf_convert.h"

namespace ac::platform::macos {
namespace {

static_assert(static_cast<int>(WriterStatus::unknown) == AVAssetWriterStatusUnknown);
static_assert(static_cast<int>(WriterStatus::writing) == AVAssetWriterStatusWriting);
static_assert(static_cast<int>(WriterStatus::completed) == AVAssetWriterStatusCompleted);
static_assert(static_cast<int>(WriterStatus::failed) == AVAssetWriterStatusFailed);
static_assert(static_cast<int>(WriterStatus::cancelled) == AVAssetWriterStatusCancelled);

class AVFWriterInput final : public WriterInput {
 public:
  explicit AVFWriterInput(AVAssetWriterInput* input) : input_(input) {}

  AudioOutputSettings settings() const override { return writerSettingsFrom(input_.outputSettings); }
  void setExpectsMediaDataInRealTime(bool realTime) override { input_.expectsMediaDataInRealTime = realTime; }
  // The write queues are long-lived threads of the core with no pool of
  // their own: what a per-buffer call autoreleases is drained right here.
  bool isReadyForMoreMediaData() override {
    @autoreleasepool {
      return input_.readyForMoreMediaData;
    }
  }

  bool append(const SampleBuffer& sample) override {
    CMSampleBufferRef buffer = nullptr;
    if (makeSampleBuffer(sample, buffer) != noErr) return false;
    BOOL appended;
    @autoreleasepool {
      appended = [input_ appendSampleBuffer:buffer];
    }
    CFRelease(buffer);
    return appended;
  }

  void markAsFinished() override { [input_ markAsFinished]; }
  AVAssetWriterInput* input() const { return input_; }

 private:
  AVAssetWriterInput* input_;
};

AVAssetWriterInput* inputOf(const std::shared_ptr<WriterInput>& input) {
  auto* ours = dynamic_cast<AVFWriterInput*>(input.get());
  return ours ? ours->input() : nil;
}

class AVFAssetWriter final : public AssetWriter {
 public:
  explicit AVFAssetWriter(AVAssetWriter* writer) : writer_(writer) {}

  bool canApplyOutputSettings(const AudioOutputSettings& settings) override {
    return [writer_ canApplyOutputSettings:writerSettingsDictionary(settings) forMediaType:AVMediaTypeAudio];
  }

  std::shared_ptr<WriterInput> makeInput(const AudioOutputSettings& settings, const std::string& name) override {
    // Settings the encoder cannot take raise instead of returning nil.
    @try {
      AVAssetWriterInput* input = [AVAssetWriterInput assetWriterInputWithMediaType:AVMediaTypeAudio
                                                                     outputSettings:writerSettingsDictionary(settings)];
      AVMutableMetadataItem* title = [AVMutableMetadataItem metadataItem];
      title.identifier = AVMetadataCommonIdentifierTitle;
      title.value = [NSString stringWithUTF8String:name.c_str()];
      input.metadata = @[ title ];
      return std::make_shared<AVFWriterInput>(input);
    } @catch (NSException*) {
      return nullptr;
    }
  }

  bool canAddInput(const std::shared_ptr<WriterInput>& input) override {
    AVAssetWriterInput* in = inputOf(input);
    return in && [writer_ canAddInput:in];
  }

  void addInput(const std::shared_ptr<WriterInput>& input) override {
    if (AVAssetWriterInput* in = inputOf(input)) [writer_ addInput:in];
  }

  bool startWriting() override { return [writer_ startWriting]; }
  void startSession(MediaTime sourceTime) override { [writer_ startSessionAtSourceTime:toCMTime(sourceTime)]; }

  void finishWriting(std::function<void()> completion) override {
    [writer_ finishWritingWithCompletionHandler:^{
      completion();
    }];
  }

  void cancelWriting() override { [writer_ cancelWriting]; }
  WriterStatus status() override { return static_cast<WriterStatus>(writer_.status); }
  std::optional<Error> error() override { return toOptionalError(writer_.error); }

 private:
  AVAssetWriter* writer_;
};

class AVFWriterFactory final : public WriterFactory {
 public:
  std::unique_ptr<AssetWriter> makeMPEG4Writer(const std::string& path, MediaTime fragmentInterval,
                                               Error& error) override {
    NSError* failure = nil;
    // MPEG-4 rather than AVFileTypeAppleM4A for the .m4a path: the writer
    // takes the type as given and never checks the extension; the two differ
    // in the file's brand only, and movie fragments (which keep a crashed
    // recording readable) are what AVFoundation documents for MPEG-4 and
    // QuickTime files, not for M4A. Players find the audio by its tracks
    // either way, and the Linux writer's muxer writes the same layout.
    AVAssetWriter* writer = [AVAssetWriter assetWriterWithURL:[NSURL fileURLWithPath:toNSString(path)]
                                                     fileType:AVFileTypeMPEG4
                                                        error:&failure];
    if (!writer) {
      error = toError(failure);
      return nullptr;
    }
    writer.movieFragmentInterval = toCMTime(fragmentInterval);
    return std::make_unique<AVFAssetWriter>(writer);
  }
};

}  // namespace

std::unique_ptr<WriterFactory> makeAVFWriterFactory() { return std::make_unique<AVFWriterFactory>(); }

}  // namespace ac::platform::macos
