// A backend's seams, each made by its factory on first use: a mode that never
// touches audio never connects to the sound server, and one that never posts
// never needs a bus. Thread-safe: racing first uses make one seam, which
// lives as long as the platform.
#pragma once

#include <memory>
#include <mutex>

#include "platform/platform.h"

namespace ac::platform {

class LazyPlatform : public Platform {
 public:
  struct Factories {
    std::unique_ptr<AudioHardware> (*audio)();
    std::unique_ptr<MicCapture> (*mic)();
    std::unique_ptr<WriterFactory> (*writers)();
    std::unique_ptr<NotificationCenter> (*notifications)();
    std::unique_ptr<Workspace> (*workspace)();
  };

  explicit LazyPlatform(const Factories& make) : make_(make) {}

  AudioHardware& audio() override { return made(audio_, make_.audio); }
  MicCapture& mic() override { return made(mic_, make_.mic); }
  WriterFactory& writers() override { return made(writers_, make_.writers); }
  NotificationCenter& notifications() override { return made(notifications_, make_.notifications); }
  Workspace& workspace() override { return made(workspace_, make_.workspace); }

 private:
  template <class T>
  struct Slot {
    std::once_flag once;
    std::unique_ptr<T> seam;
  };
  template <class T>
  static T& made(Slot<T>& slot, std::unique_ptr<T> (*make)()) {
    std::call_once(slot.once, [&] { slot.seam = make(); });
    return *slot.seam;
  }

  Factories make_;
  Slot<AudioHardware> audio_;
  Slot<MicCapture> mic_;
  Slot<WriterFactory> writers_;
  Slot<NotificationCenter> notifications_;
  Slot<Workspace> workspace_;
};

}  // namespace ac::platform
