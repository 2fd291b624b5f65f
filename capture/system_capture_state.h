// The shared state of one system-audio chain, seen by every file of the
// chain. Internal to capture/ (and its tests).
//
// Threads and ownership:
// - SystemCapture owns the State through a shared_ptr; IOProc and listener
//   blocks hold it only weakly (`self`) and lock it for the length of a call.
// - Object IDs, the output UID and the listener-driven repairs are touched
//   only under rebuildLock (set-up, start, teardown, repairs).
// - The IOProc reads the selection, systemFormat and tapScratch without any
//   lock. They are written only while no IOProc that could read them is
//   live: before the first start, or after a stop or destroy succeeded.
// - Counters bumped on the IOProc thread are atomics; what it has to say
//   goes through `periods` to the system write queue, which logs it.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "capture/system_capture.h"
#include "capture/system_periods.h"
#include "support/dispatch.h"
#include "support/spsc_ring.h"

namespace ac::capture {

inline constexpr const char* kIOProcQueueLabel = "audio-capture.ioproc";
inline constexpr const char* kDeviceWatchQueueLabel = "audio-capture.device-watch";

struct SystemCapture::State {
  State(platform::AudioHardware& hw, SystemSampleSink& sink, PostNotification post);

  platform::AudioHardware& hw;
  SystemSampleSink& sink;
  PostNotification post;
  std::weak_ptr<State> self;

  // Recursive so that teardown may run from inside markStopped's callback.
  std::recursive_mutex rebuildLock;
  bool included = false;  // setup() ran: system audio is part of the recording
  bool stopped = false;
  bool started = false;  // start() ran: the chain records
  platform::AudioObjectID tapID = 0;
  std::optional<std::string> tapUID;
  platform::AudioObjectID aggID = 0;
  platform::IOProcID ioProcID = 0;
  std::optional<std::string> currentOutputUID;
  std::atomic<int64_t> systemFormatChanges{0};
  double rebuildRetryDelaySeconds = 0.5;

  // Read lock-free by the IOProc (see above).
  platform::StreamFormat systemFormat;
  int64_t tapBufferIndex = 0;
  int64_t tapBufferCount = 1;
  int64_t tapProbedBufferCount = -1;  // never equals a real count: unprobed
  std::unique_ptr<platform::OwnedBufferList> tapScratch;
  uint32_t timebaseNumer = 1;
  uint32_t timebaseDenom = 1;

  std::atomic<int64_t> ioProcCalls{0};
  std::atomic<int64_t> dataFailures{0};
  std::atomic<int64_t> dataFailureStreak{0};
  std::atomic<int64_t> tapBufferBoundsFailures{0};
  std::atomic<float> maxSampleAbs{0};

  // IOProc to system write queue (system_periods.h).
  SpscRing<SystemPeriod> periods{systemPeriodSlots};
  std::atomic<int64_t> periodOverruns{0};
  std::atomic<int64_t> periodsTooLarge{0};
  int64_t periodOverrunsLogged = 0;  // the write queue's

  std::mutex listenerLock;
  bool deviceListenerInstalled = false;
  platform::ListenerID deviceListener = 0;
  bool tapFormatListenerInstalled = false;
  platform::ListenerID tapFormatListener = 0;
  std::unique_ptr<SerialQueue> deviceWatchQueue;

  std::mutex rebuildNotifyLock;
  bool notifiedRebuildFailure = false;

  int64_t tapScratchCapacity() const { return tapScratch ? tapScratch->capacity() : 0; }
};

}  // namespace ac::capture
