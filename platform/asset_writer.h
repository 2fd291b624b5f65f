// The file-writer seam: an asset writer producing one MPEG-4 file with one
// AAC track per input, in the order the inputs were added.
//
// Thread contract: each input is appended to from one serial queue; the
// writer's own calls (start, finish, cancel) come from one thread at a time.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/audio_types.h"
#include "support/error.h"

namespace ac::platform {

// Error domains the core inspects.
inline constexpr const char* kPOSIXErrorDomain = "NSPOSIXErrorDomain";
inline constexpr const char* kCocoaErrorDomain = "NSCocoaErrorDomain";

// Exactly the four keys of the encoder's output settings.
struct AudioOutputSettings {
  uint32_t formatID = kAudioFormatMPEG4AAC;
  double sampleRate = 0;
  int channels = 0;
  int bitRate = 0;
  bool operator==(const AudioOutputSettings&) const = default;
};

enum class WriterStatus : int { unknown = 0, writing = 1, completed = 2, failed = 3, cancelled = 4 };

class WriterInput {
 public:
  virtual ~WriterInput() = default;
  virtual AudioOutputSettings settings() const = 0;
  virtual void setExpectsMediaDataInRealTime(bool) = 0;
  virtual bool isReadyForMoreMediaData() = 0;
  // Places the sample at its presentation time on the session's time line
  // and encodes it; false when it could not be appended (the writer's error
  // says why). The core hands buffers as they were captured, so the writer
  // owns the time line: a buffer presenting after the track's end is
  // preceded by silence up to its time (a gap of any length), one presenting
  // before the end has its overlapping head dropped, differences under a
  // millisecond are absorbed, a new sample rate is resampled to the track's
  // and starts a new run from the end, and every track's first sample
  // presents as late as the most-priming encoder's, so tracks whose encoders
  // prime differently still start together.
  virtual bool append(const SampleBuffer& sample) = 0;
  virtual void markAsFinished() = 0;
};

class AssetWriter {
 public:
  virtual ~AssetWriter() = default;
  virtual bool canApplyOutputSettings(const AudioOutputSettings& settings) = 0;
  // An input whose track players list as `name` ("System audio").
  virtual std::shared_ptr<WriterInput> makeInput(const AudioOutputSettings& settings, const std::string& name) = 0;
  virtual bool canAddInput(const std::shared_ptr<WriterInput>& input) = 0;
  virtual void addInput(const std::shared_ptr<WriterInput>& input) = 0;
  virtual bool startWriting() = 0;
  virtual void startSession(MediaTime sourceTime) = 0;
  // Calls completion once, on any thread, when the file is closed.
  virtual void finishWriting(std::function<void()> completion) = 0;
  virtual void cancelWriting() = 0;
  virtual WriterStatus status() = 0;
  virtual std::optional<Error> error() = 0;
};

class WriterFactory {
 public:
  virtual ~WriterFactory() = default;
  // An MPEG-4 writer at path that writes a movie fragment every
  // fragmentInterval. Null with `error` filled on failure.
  virtual std::unique_ptr<AssetWriter> makeMPEG4Writer(const std::string& path, MediaTime fragmentInterval,
                                                       Error& error) = 0;
};

}  // namespace ac::platform
