#include "sim_asset_writer.h"

namespace ac::sim {

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

std::unique_ptr<platform::AssetWriter> SimWriterFactory::makeMPEG4Writer(const std::string& path,
                                                                         platform::MediaTime fragmentInterval,
                                                                         Error& error) {
  if (script_->createError) {
    error = *script_->createError;
    return nullptr;
  }
  auto record = std::make_shared<SimWriterRecord>(path, fragmentInterval);
  {
    std::lock_guard lock(mutex_);
    writers_.push_back(record);
  }
  return std::make_unique<SimAssetWriter>(script_, record);
}

}  // namespace ac::sim
