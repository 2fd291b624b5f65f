// Placeholder for the FFmpeg writer backend: refuses to create a writer.
#include "platform/linux/backends.h"

namespace ac::platform::linux_backend {
namespace {
class Unbuilt final : public WriterFactory {
 public:
  std::unique_ptr<AssetWriter> makeMPEG4Writer(const std::string&, MediaTime, Error& error) override {
    error = Error{kErrorDomain, kUnimplementedErr, "the file writer is not built on this platform yet"};
    return nullptr;
  }
};
}  // namespace
std::unique_ptr<WriterFactory> makeFFmpegWriterFactory() { return std::make_unique<Unbuilt>(); }
}  // namespace ac::platform::linux_backend
