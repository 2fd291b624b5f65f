#include "sim_asset_writer.h"

namespace ac::sim {

using platform::WriterStatus;

bool SimWriterInput::append(const platform::SampleBuffer& sample) {
  std::optional<Error> failure;
  {
    std::lock_guard lock(mutex_);
    ++attempts_;
    if (failAppends_ == 0) {
      appended_.push_back(sample);
      return true;
    }
    --failAppends_;
    failure = failError_;
  }
  if (auto writer = writer_.lock()) writer->setError(failure);
  return false;
}

namespace {

// What the code under test owns: forwards to a writer the factory keeps, so
// tests can still inspect it after the owner let go.
class OwnedWriter final : public platform::AssetWriter {
 public:
  explicit OwnedWriter(std::shared_ptr<SimAssetWriter> w) : w_(std::move(w)) {}
  ~OwnedWriter() override { w_->markReleased(); }
  bool canApplyOutputSettings(const platform::AudioOutputSettings& s) override { return w_->canApplyOutputSettings(s); }
  std::shared_ptr<platform::WriterInput> makeInput(const platform::AudioOutputSettings& s,
                                                   const std::string& name) override {
    return w_->makeInput(s, name);
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

std::unique_ptr<platform::AssetWriter> SimWriterFactory::makeMPEG4Writer(const std::string& path,
                                                                         platform::MediaTime fragmentInterval,
                                                                         Error& error) {
  if (script_->createError) {
    error = *script_->createError;
    return nullptr;
  }
  auto writer = std::make_shared<SimAssetWriter>(path, fragmentInterval, script_);
  {
    std::lock_guard lock(mutex_);
    writers_.push_back(writer);
  }
  return std::make_unique<OwnedWriter>(writer);
}

}  // namespace ac::sim
