#include <mutex>

#include "platform/linux/backends.h"

namespace ac::platform {
namespace {

// Seams are made on first use, so a mode that never touches audio never
// connects to the sound server, and one that never posts never needs a bus.
class LinuxPlatform final : public Platform {
 public:
  AudioHardware& audio() override { return lazy(audioOnce_, audio_, linux_backend::makePulseAudioHardware); }
  MicCapture& mic() override { return lazy(micOnce_, mic_, linux_backend::makePulseMicCapture); }
  WriterFactory& writers() override { return lazy(writersOnce_, writers_, linux_backend::makeFFmpegWriterFactory); }
  NotificationCenter& notifications() override {
    return lazy(notificationsOnce_, notifications_, linux_backend::makeDBusNotificationCenter);
  }
  Workspace& workspace() override { return lazy(workspaceOnce_, workspace_, linux_backend::makeLinuxWorkspace); }

 private:
  template <class T, class F>
  static T& lazy(std::once_flag& once, std::unique_ptr<T>& slot, F make) {
    std::call_once(once, [&] { slot = make(); });
    return *slot;
  }

  std::once_flag audioOnce_, micOnce_, writersOnce_, notificationsOnce_, workspaceOnce_;
  std::unique_ptr<AudioHardware> audio_;
  std::unique_ptr<MicCapture> mic_;
  std::unique_ptr<WriterFactory> writers_;
  std::unique_ptr<NotificationCenter> notifications_;
  std::unique_ptr<Workspace> workspace_;
};

}  // namespace

std::unique_ptr<Platform> makePlatform() { return std::make_unique<LinuxPlatform>(); }

}  // namespace ac::platform
