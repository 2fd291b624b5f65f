#include "capture/output_recovery.h"

#include <chrono>
#include <thread>

#include "capture/output_device.h"
#include "capture/process_tap.h"
#include "capture/system_ioproc.h"
#include "capture/tap_format.h"
#include "capture/tap_topology.h"
#include "support/error.h"
#include "support/log.h"

namespace ac::capture {

using platform::ListenedProperty;
using platform::OSStatus;
using State = SystemCapture::State;
using std::to_string;

namespace {

// One listener slot: where it watches, what it is called in the logs.
struct ListenerSlot {
  bool State::*installed;
  platform::ListenerID State::*id;
  ListenedProperty property;
  const char* name;
};

constexpr ListenerSlot kDeviceSlot{&State::deviceListenerInstalled, &State::deviceListener,
                                   ListenedProperty::defaultOutputDevice, "default-output"};
constexpr ListenerSlot kTapFormatSlot{&State::tapFormatListenerInstalled, &State::tapFormatListener,
                                      ListenedProperty::tapFormat, "tap-format"};

bool installListener(State& s, const ListenerSlot& slot, platform::AudioObjectID object, void (*handler)(State&)) {
  std::lock_guard lock(s.listenerLock);
  if (s.*slot.installed) return false;
  std::weak_ptr<State> weak = s.self;
  platform::ListenerID id = 0;
  OSStatus st = s.hw.addPropertyListener(object, slot.property, *s.deviceWatchQueue,
                                         [weak, handler] {
                                           if (auto state = weak.lock()) handler(*state);
                                         },
                                         id);
  if (st != 0) {
    log(std::string("failed to install ") + slot.name + " listener: " + to_string(st));
    return false;
  }
  s.*slot.id = id;
  s.*slot.installed = true;
  log(std::string(slot.name) + " listener installed");
  return true;
}

void removeListener(State& s, const ListenerSlot& slot, platform::AudioObjectID object, bool canRemove) {
  std::lock_guard lock(s.listenerLock);
  if (s.*slot.installed && s.*slot.id != 0 && canRemove) {
    OSStatus st = s.hw.removePropertyListener(object, slot.property, s.*slot.id);
    if (st != 0) log(std::string("failed to remove ") + slot.name + " listener: " + to_string(st));
  }
  s.*slot.installed = false;
  s.*slot.id = 0;
}

std::optional<std::string> lookUpDefaultOutputUID(State& s) {
  try {
    return defaultOutputDeviceUID(s.hw);
  } catch (const CaptureError&) {
    return std::nullopt;
  }
}

void refreshAfterFormatChange(State& s, const platform::StreamFormat& fresh) {
  refreshTapTopology(s, "tap-format-changed", fresh, true, s.aggID, s.currentOutputUID);
}

}  // namespace

void installDefaultOutputListener(State& s) {
  if (!installListener(s, kDeviceSlot, platform::kAudioObjectSystemObject, handleDefaultOutputChange)) return;
  std::weak_ptr<State> weak = s.self;
  s.deviceWatchQueue->async([weak] {
    if (auto state = weak.lock()) handleDefaultOutputChange(*state);
  });
}

void removeDefaultOutputListener(State& s) {
  removeListener(s, kDeviceSlot, platform::kAudioObjectSystemObject, true);
}

void installTapFormatListener(State& s) {
  if (s.tapID == 0) return;
  if (!installListener(s, kTapFormatSlot, s.tapID, handleTapFormatChange)) return;
  std::weak_ptr<State> weak = s.self;
  s.deviceWatchQueue->async([weak] {
    if (auto state = weak.lock()) handleTapFormatChange(*state);
  });
}

void removeTapFormatListener(State& s) { removeListener(s, kTapFormatSlot, s.tapID, s.tapID != 0); }

void handleDefaultOutputChange(State& s) {
  std::lock_guard lock(s.rebuildLock);
  if (s.stopped || !s.included) return;
  std::string uid;
  try {
    uid = defaultOutputDeviceUID(s.hw);
  } catch (const CaptureError& e) {
    log(std::string("default-output changed but lookup failed: ") + e.what() + " \u2014 skipping rebuild");
    // The output in use may be gone with whatever failed (a sound service
    // that went away takes the aggregate along): the next default that can
    // be named gets a fresh chain, even when it is the same device.
    s.currentOutputUID.reset();
    return;
  }
  if (s.currentOutputUID == uid) return;

  log("default output changed to " + uid + " \u2014 rebuilding aggregate");
  if (rebuildAggregate(s, uid)) {
    log("aggregate rebuilt successfully (output=" + uid + ")");
    return;
  }
  log("aggregate rebuild attempt 1 failed \u2014 retrying in 500ms");
  std::this_thread::sleep_for(std::chrono::duration<double>(s.rebuildRetryDelaySeconds));
  uid = lookUpDefaultOutputUID(s).value_or(uid);
  if (rebuildAggregate(s, uid)) {
    log("aggregate rebuilt successfully on retry (output=" + uid + ")");
    return;
  }
  log("aggregate rebuild retry also failed \u2014 system audio capture is dead until restart");
  notifyRebuildFailureOnce(s);
}

bool rebuildAggregate(State& s, const std::string& newOutputUID) {
  if (!s.tapUID) {
    log("rebuild aborted: no tapUID");
    return false;
  }
  const bool hadIOProc = s.ioProcID != 0;
  bool stopped = true;
  bool procDestroyed = true;
  if (hadIOProc) {
    OSStatus st = s.hw.stopDevice(s.aggID, s.ioProcID);
    if (st != 0) log("rebuild: AudioDeviceStop returned " + to_string(st));
    stopped = st == 0;
    st = s.hw.destroyIOProc(s.aggID, s.ioProcID);
    if (st != 0) log("rebuild: AudioDeviceDestroyIOProcID returned " + to_string(st));
    procDestroyed = st == 0;
  }
  bool aggregateDestroyed = false;
  if (s.aggID != 0) {
    OSStatus st = s.hw.destroyAggregateDevice(s.aggID);
    if (st != 0) {
      log("rebuild: AudioHardwareDestroyAggregateDevice returned " + to_string(st));
      log("rebuild aborted: AudioHardwareDestroyAggregateDevice failed \u2014 refusing to orphan an aggregate that "
          "still holds the tap");
      return false;
    }
    aggregateDestroyed = true;
  }
  if (hadIOProc && !procDestroyed && !aggregateDestroyed) {
    log("rebuild aborted: neither the IOProc nor the aggregate could be destroyed \u2014 refusing to orphan a "
        "possibly-live callback");
    return false;
  }
  const bool quiesced = !hadIOProc || procDestroyed || stopped || aggregateDestroyed;
  s.ioProcID = 0;
  s.aggID = 0;

  platform::AudioObjectID fresh = 0;
  try {
    fresh = createAggregate(s.hw, *s.tapUID, newOutputUID);
  } catch (const CaptureError& e) {
    log(std::string("rebuild: createAggregate failed: ") + e.what());
    return false;
  }

  if (!quiesced) {
    log("sys topology: reason=rebuild skipped=cannot-prove-callback-quiesced keeping sr=" +
        formatDouble(s.systemFormat.sampleRate) + " ch=" + to_string(s.systemFormat.channelsPerFrame) +
        " tapBuf=" + to_string(s.tapBufferIndex) + " tapBufCount=" + to_string(s.tapBufferCount));
  } else if (s.included && s.tapID != 0) {
    refreshTapTopology(s, "rebuild", std::nullopt, true, fresh, newOutputUID);
  }

  if (!s.started) {
    // Nothing records yet: start() records the new aggregate.
    s.aggID = fresh;
    s.currentOutputUID = newOutputUID;
    return true;
  }
  platform::IOProcID proc = 0;
  OSStatus st = createSystemIOProc(s, fresh, proc);
  if (st != 0 || proc == 0) {
    log("rebuild: AudioDeviceCreateIOProcIDWithBlock failed: " + to_string(st));
    s.hw.destroyAggregateDevice(fresh);
    return false;
  }
  st = s.hw.startDevice(fresh, proc);
  if (st != 0) {
    log("rebuild: AudioDeviceStart failed: " + to_string(st));
    s.hw.destroyIOProc(fresh, proc);
    s.hw.destroyAggregateDevice(fresh);
    return false;
  }
  s.aggID = fresh;
  s.ioProcID = proc;
  s.currentOutputUID = newOutputUID;
  return true;
}

void handleTapFormatChange(State& s) {
  std::lock_guard lock(s.rebuildLock);
  if (s.stopped || !s.included || s.tapID == 0) return;
  const std::string currentRate = formatDouble(s.systemFormat.sampleRate);
  platform::StreamFormat fresh;
  try {
    fresh = tapStreamFormat(s.hw, s.tapID);
  } catch (const CaptureError&) {
    log("tap-format changed but re-read failed \u2014 keeping sr=" + currentRate);
    return;
  }
  if (asbdEquivalent(s.systemFormat, fresh)) return;  // a spurious notification
  if (!isUsableTapFormat(fresh)) {
    log("tap-format changed to an unusable format " + formatFragment(fresh) + " \u2014 keeping sr=" + currentRate +
        ", IOProc untouched");
    return;
  }
  log("tap format changed (sr=" + currentRate + "\u2192" + formatDouble(fresh.sampleRate) +
      ") \u2014 restarting IOProc to adopt it");

  if (s.ioProcID == 0 || s.aggID == 0) {
    refreshAfterFormatChange(s, fresh);
    return;
  }
  OSStatus st = s.hw.stopDevice(s.aggID, s.ioProcID);
  if (st != 0) {
    log("tap-format: AudioDeviceStop returned " + to_string(st) +
        " \u2014 leaving the IOProc alone (cannot prove the callback is quiesced)");
    return;
  }
  st = s.hw.destroyIOProc(s.aggID, s.ioProcID);
  if (st != 0) {
    log("tap-format: AudioDeviceDestroyIOProcID returned " + to_string(st) +
        " \u2014 adopting the format and restarting the IOProc we still hold");
    refreshAfterFormatChange(s, fresh);  // the proc is stopped
    st = s.hw.startDevice(s.aggID, s.ioProcID);
    if (st != 0) {
      log("tap-format: AudioDeviceStart on the retained IOProc failed: " + to_string(st) +
          " \u2014 system audio capture is dead until restart");
      notifyRebuildFailureOnce(s);
    }
    return;
  }

  s.ioProcID = 0;
  refreshAfterFormatChange(s, fresh);
  if (startIOProc(s, s.aggID)) {
    log("tap-format: IOProc restarted on aggregate " + to_string(s.aggID));
    return;
  }
  log("tap-format: could not restart the IOProc \u2014 attempting a full aggregate rebuild");
  std::optional<std::string> uid = s.currentOutputUID ? s.currentOutputUID : lookUpDefaultOutputUID(s);
  if (uid && rebuildAggregate(s, *uid)) {
    log("tap-format: recovered via aggregate rebuild (output=" + *uid + ")");
    return;
  }
  log("tap-format: recovery rebuild failed \u2014 system audio capture is dead until restart");
  notifyRebuildFailureOnce(s);
}

void notifyRebuildFailureOnce(State& s) {
  {
    std::lock_guard lock(s.rebuildNotifyLock);
    if (s.notifiedRebuildFailure) return;
    s.notifiedRebuildFailure = true;
  }
  if (s.post)
    s.post("System audio stopped",
           "The output device changed and Vela could not recover. Stop and restart the recording.", "Basso");
}

}  // namespace ac::capture
