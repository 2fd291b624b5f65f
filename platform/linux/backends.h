// The Linux backends, one factory per seam. Each is built in files of its
// own: PulseAudio (audio hardware, microphone), FFmpeg (writer), the session
// D-Bus (notifications) and the desktop (workspace).
#pragma once

#include <memory>

#include "platform/platform.h"

namespace ac::platform::linux_backend {

std::unique_ptr<AudioHardware> makePulseAudioHardware();
std::unique_ptr<MicCapture> makePulseMicCapture();
std::unique_ptr<WriterFactory> makeFFmpegWriterFactory();
std::unique_ptr<NotificationCenter> makeDBusNotificationCenter();
std::unique_ptr<Workspace> makeLinuxWorkspace();

}  // namespace ac::platform::linux_backend
