#include "sim_asset_writer.h"

namespace ac::sim {

bool SimWriterInput::append(const platform::SampleBuffer& sample) {
  // The error a failing append leaves, or nothing when it succeeds.
  const auto failure = log_.with([&](AppendLog& l) -> std::optional<std::optional<Error>> {
    ++l.attempts;
    if (l.failing == 0) return l.appended.push_back(sample), std::nullopt;
    --l.failing;
    return l.error;
  });
  if (auto writer = writer_.lock(); writer && failure) writer->error.set(*failure);
  return !failure;
}

std::unique_ptr<platform::AssetWriter> SimWriterFactory::makeMPEG4Writer(const std::string& path,
                                                                         platform::MediaTime fragmentInterval,
                                                                         Error& error) {
  if (script->createError) {
    error = *script->createError;
    return nullptr;
  }
  auto record = std::make_shared<SimWriterRecord>(path, fragmentInterval);
  {
    std::lock_guard lock(mutex_);
    writers_.push_back(record);
  }
  return std::make_unique<SimAssetWriter>(script, record);
}

}  // namespace ac::sim
