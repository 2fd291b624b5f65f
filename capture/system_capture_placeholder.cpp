// Placeholder until the system chain lands: set-up refuses clearly.
#include "capture/system_capture.h"
#include "support/error.h"

namespace ac::capture {

struct SystemCapture::State {};

SystemCapture::SystemCapture(platform::AudioHardware&, SystemSampleSink&, PostNotification)
    : state_(std::make_shared<State>()) {}
SystemCapture::~SystemCapture() = default;
void SystemCapture::setup() { throw CaptureError(-1, "system audio capture is not built yet"); }
platform::StreamFormat SystemCapture::systemFormat() const { return {}; }
void SystemCapture::start() { throw CaptureError(-1, "system audio capture is not built yet"); }
void SystemCapture::installListeners() {}
void SystemCapture::removeListeners() {}
void SystemCapture::markStopped(const std::function<void()>& whileLocked) { whileLocked(); }
void SystemCapture::teardown() {}
SystemCaptureStats SystemCapture::stats() const { return {}; }

}  // namespace ac::capture
