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

struct SimWriterRecord;

class SimWriterInput final : public platform::WriterInput {
 public:
  SimWriterInput(platform::AudioOutputSettings settings, std::weak_ptr<SimWriterRecord> writer, std::string name)
      : name(std::move(name)), settings_(settings), writer_(std::move(writer)) {}
  const std::string name;  // as the recorder named the track

  // --- scripting ---
  Locked<bool> ready = true;
  // The next `count` appends fail, each leaving `error` as the writer's error.
  void failNextAppends(int count, std::optional<Error> error) {
    log_.with([&](AppendLog& l) { l.failing = count, l.error = std::move(error); });
  }

  // --- records ---
  std::vector<platform::SampleBuffer> appended() const { return log_.get().appended; }
  std::vector<platform::MediaTime> appendedPTS() const {
    std::vector<platform::MediaTime> out;
    for (const auto& sb : appended()) out.push_back(sb.presentationTime());
    return out;
  }
  int appendAttempts() const { return log_.get().attempts; }
  Locked<bool> realTime, finished;

  // --- platform::WriterInput ---
  platform::AudioOutputSettings settings() const override { return settings_; }
  void setExpectsMediaDataInRealTime(bool value) override { realTime.set(value); }
  bool isReadyForMoreMediaData() override { return ready.get() && !finished.get(); }
  bool append(const platform::SampleBuffer& sample) override;
  void markAsFinished() override { finished.set(true); }

 private:
  struct AppendLog {
    int failing = 0;
    std::optional<Error> error;
    int attempts = 0;
    std::vector<platform::SampleBuffer> appended;
  };
  const platform::AudioOutputSettings settings_;
  const std::weak_ptr<SimWriterRecord> writer_;
  Locked<AppendLog> log_;
};

// What one writer was asked and did.
struct SimWriterRecord {
  const std::string path;
  const platform::MediaTime fragmentInterval;
  Locked<platform::WriterStatus> status = platform::WriterStatus::unknown;
  Locked<std::optional<Error>> error;
  Locked<std::vector<std::shared_ptr<SimWriterInput>>> inputs;  // in order
  Locked<std::optional<platform::MediaTime>> sessionStart;
  Locked<int> finishCalls;
  Locked<bool> released;  // the code under test let the writer go
};

class SimAssetWriter final : public platform::AssetWriter {
 public:
  explicit SimAssetWriter(std::shared_ptr<SimWriterScript> script,
                          std::shared_ptr<SimWriterRecord> record =
                              std::make_shared<SimWriterRecord>("", platform::MediaTime{}))
      : script_(std::move(script)), r_(std::move(record)) {}
  ~SimAssetWriter() override { r_->released.set(true); }

  bool canApplyOutputSettings(const platform::AudioOutputSettings& settings) override {
    return !script_->accepts || script_->accepts(settings);
  }
  std::shared_ptr<platform::WriterInput> makeInput(const platform::AudioOutputSettings& settings,
                                                   const std::string& name) override {
    return std::make_shared<SimWriterInput>(settings, r_, name);
  }
  bool canAddInput(const std::shared_ptr<platform::WriterInput>&) override {
    return script_->canAddInputs && status() == platform::WriterStatus::unknown;
  }
  void addInput(const std::shared_ptr<platform::WriterInput>& input) override {
    r_->inputs.push_back(std::static_pointer_cast<SimWriterInput>(input));
  }
  bool startWriting() override {
    r_->status.set(script_->startWritingSucceeds ? platform::WriterStatus::writing : platform::WriterStatus::failed);
    return script_->startWritingSucceeds;
  }
  void startSession(platform::MediaTime sourceTime) override { r_->sessionStart.set(sourceTime); }
  void finishWriting(std::function<void()> completion) override {
    r_->finishCalls.with([](int& n) { ++n; });
    r_->status.set(script_->finishStatus);
    std::thread([completion = std::move(completion)] {
      if (completion) completion();
    }).detach();
  }
  void cancelWriting() override { r_->status.set(platform::WriterStatus::cancelled); }
  platform::WriterStatus status() override { return r_->status.get(); }
  std::optional<Error> error() override { return r_->error.get(); }

 private:
  const std::shared_ptr<SimWriterScript> script_;
  const std::shared_ptr<SimWriterRecord> r_;
};

class SimWriterFactory final : public platform::WriterFactory {
 public:
  const std::shared_ptr<SimWriterScript> script = std::make_shared<SimWriterScript>();
  // What the newest writer made so far did, or null.
  std::shared_ptr<SimWriterRecord> lastWriter() const {
    std::lock_guard lock(mutex_);
    return writers_.empty() ? nullptr : writers_.back();
  }

  std::unique_ptr<platform::AssetWriter> makeMPEG4Writer(const std::string& path, platform::MediaTime fragmentInterval,
                                                         Error& error) override;

 private:
  mutable std::mutex mutex_;
  std::vector<std::shared_ptr<SimWriterRecord>> writers_;
};

}  // namespace ac::sim
