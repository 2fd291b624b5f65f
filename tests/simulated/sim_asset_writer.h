// A scriptable file-writer seam for tests: nothing is encoded or written to
// disk; every question, input, setting and append is recorded.
//
// Scripts (SimWriterScript, shared by the factory and every writer it makes,
// so set it before the code under test creates a writer): which output
// settings the encoder accepts, whether inputs can be added, whether
// startWriting succeeds, the status finishing ends in, and a failure to
// create the writer at all. Per input: readiness, and the next N appends
// failing with a given writer error.
//
// What a writer did stays inspectable after the code under test dropped it:
// the factory keeps each writer's SimWriterRecord (released() tells whether
// its owner let the writer go). finishWriting calls its completion once, on
// a new thread. Thread-safe.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/asset_writer.h"
#include "tests/simulated/locked_fields.h"

namespace ac::sim {

struct SimWriterScript {
  std::function<bool(const platform::AudioOutputSettings&)> accepts;  // empty: accept everything
  bool canAddInputs = true;
  bool startWritingSucceeds = true;
  platform::WriterStatus finishStatus = platform::WriterStatus::completed;
  std::optional<Error> createError;  // makeMPEG4Writer fails with it
};

class SimWriterRecord;

class SimWriterInput final : public platform::WriterInput {
 public:
  SimWriterInput(platform::AudioOutputSettings settings, std::weak_ptr<SimWriterRecord> writer)
      : settings_(settings), writer_(std::move(writer)) {}
  std::string name;  // as the recorder named the track; set once, before use

  // --- scripting ---
  void setReady(bool ready) { writeLocked(mutex_, ready_, ready); }
  // The next `count` appends fail, each leaving `error` as the writer's error.
  void failNextAppends(int count, std::optional<Error> error) {
    std::lock_guard lock(mutex_);
    failAppends_ = count;
    failError_ = std::move(error);
  }

  // --- records ---
  std::vector<platform::SampleBuffer> appended() const { return readLocked(mutex_, appended_); }
  std::vector<platform::MediaTime> appendedPTS() const {
    std::vector<platform::MediaTime> out;
    for (const auto& sb : appended()) out.push_back(sb.presentationTime());
    return out;
  }
  int appendAttempts() const { return readLocked(mutex_, attempts_); }
  bool expectsRealTime() const { return readLocked(mutex_, realTime_); }
  bool finished() const { return readLocked(mutex_, finished_); }

  // --- platform::WriterInput ---
  platform::AudioOutputSettings settings() const override { return settings_; }
  void setExpectsMediaDataInRealTime(bool realTime) override { writeLocked(mutex_, realTime_, realTime); }
  bool isReadyForMoreMediaData() override {
    std::lock_guard lock(mutex_);
    return ready_ && !finished_;
  }
  bool append(const platform::SampleBuffer& sample) override;
  void markAsFinished() override { writeLocked(mutex_, finished_, true); }

 private:
  const platform::AudioOutputSettings settings_;
  const std::weak_ptr<SimWriterRecord> writer_;
  mutable std::mutex mutex_;
  bool ready_ = true;
  bool realTime_ = false;
  bool finished_ = false;
  int failAppends_ = 0;
  std::optional<Error> failError_;
  int attempts_ = 0;
  std::vector<platform::SampleBuffer> appended_;
};

// What one writer was asked and did.
class SimWriterRecord {
 public:
  SimWriterRecord(std::string path, platform::MediaTime fragmentInterval)
      : path_(std::move(path)), fragmentInterval_(fragmentInterval) {}
  const std::string& path() const { return path_; }
  platform::MediaTime fragmentInterval() const { return fragmentInterval_; }
  std::vector<std::shared_ptr<SimWriterInput>> inputs() const { return readLocked(mutex_, inputs_); }  // in order
  std::optional<platform::MediaTime> sessionStart() const { return readLocked(mutex_, sessionStart_); }
  int finishCalls() const { return readLocked(mutex_, finishCalls_); }
  bool cancelled() const { return readLocked(mutex_, status_) == platform::WriterStatus::cancelled; }
  bool released() const { return readLocked(mutex_, released_); }
  void setError(std::optional<Error> error) { writeLocked(mutex_, error_, std::move(error)); }

 private:
  friend class SimAssetWriter;
  const std::string path_;
  const platform::MediaTime fragmentInterval_;
  mutable std::mutex mutex_;
  platform::WriterStatus status_ = platform::WriterStatus::unknown;
  std::optional<Error> error_;
  std::vector<std::shared_ptr<SimWriterInput>> inputs_;
  std::optional<platform::MediaTime> sessionStart_;
  int finishCalls_ = 0;
  bool released_ = false;
};

class SimAssetWriter final : public platform::AssetWriter {
 public:
  explicit SimAssetWriter(std::shared_ptr<SimWriterScript> script,
                          std::shared_ptr<SimWriterRecord> record =
                              std::make_shared<SimWriterRecord>("", platform::MediaTime{}))
      : script_(std::move(script)), r_(std::move(record)) {}
  ~SimAssetWriter() override { writeLocked(r_->mutex_, r_->released_, true); }

  bool canApplyOutputSettings(const platform::AudioOutputSettings& settings) override {
    return !script_->accepts || script_->accepts(settings);
  }
  std::shared_ptr<platform::WriterInput> makeInput(const platform::AudioOutputSettings& settings,
                                                   const std::string& name) override {
    auto input = std::make_shared<SimWriterInput>(settings, r_);
    input->name = name;
    return input;
  }
  bool canAddInput(const std::shared_ptr<platform::WriterInput>&) override {
    return script_->canAddInputs && status() == platform::WriterStatus::unknown;
  }
  void addInput(const std::shared_ptr<platform::WriterInput>& input) override {
    std::lock_guard lock(r_->mutex_);
    r_->inputs_.push_back(std::static_pointer_cast<SimWriterInput>(input));
  }
  bool startWriting() override {
    const bool ok = script_->startWritingSucceeds;
    writeLocked(r_->mutex_, r_->status_, ok ? platform::WriterStatus::writing : platform::WriterStatus::failed);
    return ok;
  }
  void startSession(platform::MediaTime sourceTime) override { writeLocked(r_->mutex_, r_->sessionStart_, sourceTime); }
  void finishWriting(std::function<void()> completion) override {
    {
      std::lock_guard lock(r_->mutex_);
      ++r_->finishCalls_;
      r_->status_ = script_->finishStatus;
    }
    std::thread([completion = std::move(completion)] {
      if (completion) completion();
    }).detach();
  }
  void cancelWriting() override { writeLocked(r_->mutex_, r_->status_, platform::WriterStatus::cancelled); }
  platform::WriterStatus status() override { return readLocked(r_->mutex_, r_->status_); }
  std::optional<Error> error() override { return readLocked(r_->mutex_, r_->error_); }

 private:
  const std::shared_ptr<SimWriterScript> script_;
  const std::shared_ptr<SimWriterRecord> r_;
};

class SimWriterFactory final : public platform::WriterFactory {
 public:
  SimWriterFactory() : script_(std::make_shared<SimWriterScript>()) {}
  SimWriterScript& script() { return *script_; }
  // What the newest writer made so far did, or null.
  std::shared_ptr<SimWriterRecord> lastWriter() const {
    std::lock_guard lock(mutex_);
    return writers_.empty() ? nullptr : writers_.back();
  }

  std::unique_ptr<platform::AssetWriter> makeMPEG4Writer(const std::string& path, platform::MediaTime fragmentInterval,
                                                         Error& error) override;

 private:
  std::shared_ptr<SimWriterScript> script_;
  mutable std::mutex mutex_;
  std::vector<std::shared_ptr<SimWriterRecord>> writers_;
};

}  // namespace ac::sim
