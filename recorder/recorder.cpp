// Placeholder until the recording chain lands: every entry point fails
// clearly instead of pretending to record.
#include "recorder/recorder.h"

#include "recorder/level_file.h"
#include "support/error.h"

namespace ac {

struct Recorder::Impl {
  std::string outputPath;
};

Recorder::Recorder(platform::Platform&, std::string outputPath, bool, bool, std::optional<std::string>,
                   capture::PostNotification)
    : impl_(std::make_shared<Impl>()) {
  impl_->outputPath = std::move(outputPath);
}
Recorder::~Recorder() = default;
void Recorder::setup() { throw CaptureError(-1, "recording is not built yet"); }
void Recorder::start() { throw CaptureError(-1, "recording is not built yet"); }
void Recorder::stop(std::function<void()> completion) { if (completion) completion(); }
void Recorder::setLevelFile(std::unique_ptr<MicLevelFile>) {}
bool Recorder::installArmedInputWatch(std::function<void(const std::string&)>) { return true; }
void Recorder::removeArmedInputWatch() {}
std::optional<std::string> Recorder::armedDeviceStaleReason() { return std::nullopt; }
void Recorder::discardArmed() {}
const std::string& Recorder::outputPath() const { return impl_->outputPath; }

}  // namespace ac
