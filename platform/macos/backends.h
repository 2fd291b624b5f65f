// The macOS backends, one factory per seam, each a thin translation to the
// framework the seam names: Core Audio (audio hardware), AVFoundation
// (microphone, writer), UserNotifications (notifications), AppKit and
// Foundation (workspace). Plain C++: no Objective-C type appears here.
#pragma once

#include <memory>

#include "platform/platform.h"

namespace ac::platform::macos {

std::unique_ptr<AudioHardware> makeCoreAudioHardware();
std::unique_ptr<MicCapture> makeAVFMicCapture();
std::unique_ptr<WriterFactory> makeAVFWriterFactory();
std::unique_ptr<NotificationCenter> makeUNNotificationCenter();
std::unique_ptr<Workspace> makeNSWorkspace();

}  // namespace ac::platform::macos
