#include "sim_asset_writer.h"

#include <thread>

namespace ac::sim {

namespace {

template <class T>
T readLocked(std::mutex& mutex, const T& field) {
  std::lock_guard<std::mutex> lock(mutex);
  return field;
}

template <class T, class V>
void writeLocked(std::mutex& mutex, T& field, V&& value) {
  std::lock_guard<std::mutex> lock(mutex);
  field = std::forward<V>(value);
}

}  // namespace

using platform::WriterStatus;

// ---- input -----------------------------------------------------------------

void SimWriterInput::setReady(bool ready) { writeLocked(mutex_, ready_, ready); }

void SimWriterInput::failNextAppends(int count, std::optional<Error> error) {
  std::lock_guard<std::mutex> lock(mutex_);
  failAppends_ = count;
  failError_ = std::move(error);
}

std::vector<platform::SampleBuffer> SimWriterInput::appended() const { return readLocked(mutex_, appended_); }

std::vector<platform::MediaTime> SimWriterInput::appendedPTS() const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<platform::MediaTime> out;
  for (const auto& sb : appended_) out.push_back(sb.presentationTime());
  return out;
}

int SimWriterInput::appendAttempts() const { return readLocked(mutex_, attempts_); }

bool SimWriterInput::expectsRealTime() const { return readLocked(mutex_, realTime_); }

bool SimWriterInput::finished() const { return readLocked(mutex_, finished_); }

void SimWriterInput::setExpectsMediaDataInRealTime(bool realTime) { writeLocked(mutex_, realTime_, realTime); }

bool SimWriterInput::isReadyForMoreMediaData() {
  std::lock_guard<std::mutex> lock(mutex_);
  return ready_ && !finished_;
}

bool SimWriterInput::append(const platform::SampleBuffer& sample) {
  std::optional<Error> failure;
  bool failed = false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    ++attempts_;
    if (failAppends_ > 0) {
      --failAppends_;
      failed = true;
      failure = failError_;
    } else {
      appended_.push_back(sample);
    }
  }
  if (failed) {
    if (auto writer = writer_.lock()) writer->setError(failure);
    return false;
  }
  return true;
}

void SimWriterInput::markAsFinished() { writeLocked(mutex_, finished_, true); }

// ---- writer ----------------------------------------------------------------

void SimAssetWriter::setError(std::optional<Error> error) { writeLocked(mutex_, error_, std::move(error)); }

std::vector<platform::AudioOutputSettings> SimAssetWriter::settingsAsked() const { return readLocked(mutex_, asked_); }

std::vector<std::shared_ptr<SimWriterInput>> SimAssetWriter::inputs() const { return readLocked(mutex_, inputs_); }

std::optional<platform::MediaTime> SimAssetWriter::sessionStart() const { return readLocked(mutex_, sessionStart_); }

int SimAssetWriter::finishCalls() const { return readLocked(mutex_, finishCalls_); }

bool SimAssetWriter::cancelled() const { return readLocked(mutex_, cancelled_); }

bool SimAssetWriter::released() const { return readLocked(mutex_, released_); }

void SimAssetWriter::markReleased() { writeLocked(mutex_, released_, true); }

bool SimAssetWriter::canApplyOutputSettings(const platform::AudioOutputSettings& settings) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    asked_.push_back(settings);
  }
  return !script_->accepts || script_->accepts(settings);
}

std::shared_ptr<platform::WriterInput> SimAssetWriter::makeInput(const platform::AudioOutputSettings& settings) {
  return std::make_shared<SimWriterInput>(settings, weak_from_this());
}

bool SimAssetWriter::canAddInput(const std::shared_ptr<platform::WriterInput>&) {
  std::lock_guard<std::mutex> lock(mutex_);
  return script_->canAddInputs && status_ == WriterStatus::unknown;
}

void SimAssetWriter::addInput(const std::shared_ptr<platform::WriterInput>& input) {
  std::lock_guard<std::mutex> lock(mutex_);
  inputs_.push_back(std::static_pointer_cast<SimWriterInput>(input));
}

bool SimAssetWriter::startWriting() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!script_->startWritingSucceeds) {
    status_ = WriterStatus::failed;
    error_ = script_->startWritingError;
    return false;
  }
  status_ = WriterStatus::writing;
  return true;
}

void SimAssetWriter::startSession(platform::MediaTime sourceTime) { writeLocked(mutex_, sessionStart_, sourceTime); }

void SimAssetWriter::finishWriting(std::function<void()> completion) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    ++finishCalls_;
    status_ = script_->finishStatus;
    if (script_->finishError) error_ = script_->finishError;
  }
  std::thread([completion = std::move(completion)] {
    if (completion) completion();
  }).detach();
}

void SimAssetWriter::cancelWriting() {
  std::lock_guard<std::mutex> lock(mutex_);
  cancelled_ = true;
  status_ = WriterStatus::cancelled;
}

WriterStatus SimAssetWriter::status() {
  std::lock_guard<std::mutex> lock(mutex_);
  return status_;
}

std::optional<Error> SimAssetWriter::error() {
  std::lock_guard<std::mutex> lock(mutex_);
  return error_;
}

// ---- factory ---------------------------------------------------------------

namespace {

// What the code under test owns: forwards to a writer the factory keeps, so
// tests can still inspect it after the owner let go.
class OwnedWriter final : public platform::AssetWriter {
 public:
  explicit OwnedWriter(std::shared_ptr<SimAssetWriter> w) : w_(std::move(w)) {}
  ~OwnedWriter() override { w_->markReleased(); }
  bool canApplyOutputSettings(const platform::AudioOutputSettings& s) override { return w_->canApplyOutputSettings(s); }
  std::shared_ptr<platform::WriterInput> makeInput(const platform::AudioOutputSettings& s) override {
    return w_->makeInput(s);
  }
  bool canAddInput(const std::shared_ptr<platform::WriterInput>& i) override { return w_->canAddInput(i); }
  void addInput(const std::shared_ptr<platform::WriterInput>& i) override { w_->addInput(i); }
  bool startWriting() override { return w_->startWriting(); }
  void startSession(platform::MediaTime t) override { w_->startSession(t); }
  void finishWriting(std::function<void()> c) override { w_->finishWriting(std::move(c)); }
  void cancelWriting() override { w_->cancelWriting(); }
  WriterStatus status() override { return w_->status(); }
  std::optional<Error> error() override { return w_->error(); }

 private:
  std::shared_ptr<SimAssetWriter> w_;
};

}  // namespace

std::vector<std::shared_ptr<SimAssetWriter>> SimWriterFactory::writers() const { return readLocked(mutex_, writers_); }

std::shared_ptr<SimAssetWriter> SimWriterFactory::lastWriter() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return writers_.empty() ? nullptr : writers_.back();
}

std::unique_ptr<platform::AssetWriter> SimWriterFactory::makeMPEG4Writer(const std::string& path,
                                                                         platform::MediaTime fragmentInterval,
                                                                         Error& error) {
  if (script_->createError) {
    error = *script_->createError;
    return nullptr;
  }
  auto writer = std::make_shared<SimAssetWriter>(path, fragmentInterval, script_);
  {
    std::lock_guard<std::mutex> lock(mutex_);
    writers_.push_back(writer);
  }
  return std::make_unique<OwnedWriter>(writer);
}

}  // namespace ac::sim
