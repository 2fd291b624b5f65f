// The macOS platform: the seams, made on first use, and a main loop that
// runs both the core's main queue and the main thread's Core Foundation run
// loop, which delivers notification-centre callbacks, listener blocks and
// the blocks of the main dispatch queue.
#import <Foundation/Foundation.h>

#include <algorithm>
#include <map>
#include <mutex>

#include "platform/lazy_platform.h"
#include "platform/macos/backends.h"
#include "platform/macos/cf_convert.h"
#include "support/dispatch.h"

namespace ac::platform {
namespace {

// Longest wait for the core's main queue while the run loop has nothing to
// do: how late a core main-queue block may start.
constexpr double runLoopSliceSeconds = 0.005;

class MacOSPlatform final : public LazyPlatform {
 public:
  MacOSPlatform()
      : LazyPlatform({macos::makeCoreAudioHardware, macos::makeAVFMicCapture, macos::makeAVFWriterFactory,
                      macos::makeUNNotificationCenter, macos::makeNSWorkspace}) {}

  void runMainLoopFor(double seconds) override {
    const double deadline = monotonicSeconds() + seconds;
    for (;;) {
      @autoreleasepool {
        runMainQueueFor(0);  // the core's blocks that are due
        const double left = deadline - monotonicSeconds();
        if (left <= 0) return;
        const double slice = std::min(left, runLoopSliceSeconds);
        // A run loop with no sources returns at once: wait on the core's
        // queue instead.
        if (CFRunLoopRunInMode(kCFRunLoopDefaultMode, slice, true) == kCFRunLoopRunFinished) runMainQueueFor(slice);
      }
    }
  }

  uint64_t beginActivity(const std::string& reason) override {
    id<NSObject> activity =
        [NSProcessInfo.processInfo beginActivityWithOptions:NSActivityUserInitiatedAllowingIdleSystemSleep
                                                     reason:macos::toNSString(reason)];
    std::lock_guard<std::mutex> lock(activityMutex_);
    activities_[nextActivity_] = activity;
    return nextActivity_++;
  }

  void endActivity(uint64_t token) override {
    id<NSObject> activity;
    {
      std::lock_guard<std::mutex> lock(activityMutex_);
      auto it = activities_.find(token);
      if (it == activities_.end()) return;
      activity = it->second;
      activities_.erase(it);
    }
    [NSProcessInfo.processInfo endActivity:activity];
  }

 private:
  std::mutex activityMutex_;
  std::map<uint64_t, id<NSObject>> activities_;
  uint64_t nextActivity_ = 1;
};

}  // namespace

std::unique_ptr<Platform> makePlatform() { return std::make_unique<MacOSPlatform>(); }

}  // namespace ac::platform
