#include "platform/lazy_platform.h"
#include "platform/linux/backends.h"

namespace ac::platform {

std::unique_ptr<Platform> makePlatform() {
  using namespace linux_backend;
  return std::make_unique<LazyPlatform>(LazyPlatform::Factories{
      makePulseAudioHardware, makePulseMicCapture, makeFFmpegWriterFactory, makeDBusNotificationCenter,
      makeLinuxWorkspace});
}

}  // namespace ac::platform
