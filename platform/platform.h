// One platform backend: the seams the core talks to. Each backend library
// defines makePlatform(); tests build their own from simulated parts.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/asset_writer.h"
#include "platform/audio_hardware.h"
#include "platform/mic_capture.h"
#include "platform/notification_center.h"
#include "platform/workspace.h"

namespace ac::platform {

class Platform {
 public:
  virtual ~Platform() = default;
  virtual AudioHardware& audio() = 0;
  virtual MicCapture& mic() = 0;
  virtual WriterFactory& writers() = 0;
  virtual NotificationCenter& notifications() = 0;
  virtual Workspace& workspace() = 0;
  // Runs the main queue (and the platform's own event loop, where it has
  // one) on the calling thread for `seconds`.
  virtual void runMainLoopFor(double seconds);
  // Keeps an idle process from being throttled while it waits for something
  // the user started (an armed launch waiting for go) until endActivity.
  // 0 where the platform throttles nothing.
  virtual uint64_t beginActivity(const std::string& reason) {
    (void)reason;
    return 0;
  }
  virtual void endActivity(uint64_t activity) { (void)activity; }
};

// The backend this executable was built with. Connections to platform
// services are made lazily, on first use of a seam.
std::unique_ptr<Platform> makePlatform();

// The platform the process uses; set once by the entry (tests set their own).
Platform& current();
void setCurrent(Platform* platform);

}  // namespace ac::platform
