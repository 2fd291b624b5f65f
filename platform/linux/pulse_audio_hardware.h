// The audio-hardware seam on PulseAudio (and PipeWire's pulse server).
//
// Devices are sinks (outputs) and non-monitor sources (inputs). A process
// tap is the stereo float mix a sink plays, read from its monitor; an
// aggregate names the sink ("master") whose monitor its IOProc records.
// Every query reads the server afresh over the shared connection, so an
// unreachable server fails every call with a non-zero status.
//
// Threads: every method may be called from any thread except the pulse loop
// threads; records are guarded by mutex_, which is never held while waiting
// on the server or while calling a core block. Each IOProc owns a
// connection of its own whose loop thread, named after the IOProc's queue
// label, is the one thread its block is called on.
//
// Creating an aggregate also makes its IOProc's stream, corked, on the main
// sink's monitor (an armed recorder does this long before "go"): the IOProc
// the core then creates takes it over, and starting it only uncorks it.
// Device queries are answered from the server watch, which the first
// aggregate subscribes to, so a start asks the server nothing.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/audio_hardware.h"
#include "platform/linux/pulse_device_model.h"
#include "platform/linux/pulse_object_ids.h"

namespace ac::platform::linux_backend {

class PulseConnection;
class PulseWatch;
class PulseIOProc;

class PulseAudioHardware final : public AudioHardware {
 public:
  // connection: the server to talk to (tests pass their own).
  explicit PulseAudioHardware(std::shared_ptr<PulseConnection> connection);
  ~PulseAudioHardware() override;

  OSStatus defaultOutputDevice(AudioObjectID& out) override;
  OSStatus deviceUID(AudioObjectID device, std::optional<std::string>& out) override;
  OSStatus objectName(AudioObjectID object, std::optional<std::string>& out) override;
  OSStatus deviceListByteSize(uint32_t& bytes) override;
  OSStatus deviceList(std::vector<AudioObjectID>& ids) override;
  OSStatus streamsByteSize(AudioObjectID device, Scope scope, uint32_t& bytes) override;
  OSStatus translateUIDToDevice(const std::string& uid, AudioObjectID& out) override;

  OSStatus streamConfigurationByteSize(AudioObjectID device, Scope scope, uint32_t& bytes) override;
  OSStatus streamConfiguration(AudioObjectID device, Scope scope, void* data, uint32_t& ioBytes) override;

  OSStatus createProcessTap(const TapDescription& description, AudioObjectID& outTap) override;
  OSStatus destroyProcessTap(AudioObjectID tap) override;
  OSStatus tapUID(AudioObjectID tap, std::optional<std::string>& out) override;
  OSStatus tapFormat(AudioObjectID tap, StreamFormat& out) override;

  OSStatus createAggregateDevice(const nlohmann::json& description, AudioObjectID& out) override;
  OSStatus destroyAggregateDevice(AudioObjectID aggregate) override;

  OSStatus createIOProc(AudioObjectID device, const std::string& queueLabel, IOBlock block, IOProcID& out) override;
  OSStatus startDevice(AudioObjectID device, IOProcID proc) override;
  OSStatus stopDevice(AudioObjectID device, IOProcID proc) override;
  OSStatus destroyIOProc(AudioObjectID device, IOProcID proc) override;

  OSStatus addPropertyListener(AudioObjectID object, ListenedProperty property, ::ac::SerialQueue& queue,
                               ListenerBlock block, ListenerID& out) override;
  OSStatus removePropertyListener(AudioObjectID object, ListenedProperty property, ListenerID listener) override;

  uint64_t hostTimeNow() override;
  void hostTimebase(uint32_t& numer, uint32_t& denom) override;

 private:
  struct Tap {
    std::string uid;
    std::string capturedSink;  // the sink recorded last (see tapSinkName)
    // The rate tapFormat last reported: IOProcs record at it, so what they
    // deliver is what the core was told, until it reads the format again.
    uint32_t reportedRate = 0;
    std::optional<TapShape> watchedShape;  // what its listeners last saw
  };
  struct Aggregate {
    std::string uid;
    std::string name;
    std::string master;
    std::string monitor;  // the master's monitor source, as it was when made
    AudioObjectID tap = 0;
    nlohmann::json description;
    // Made with the aggregate, corked; taken by its first IOProc.
    std::shared_ptr<PulseIOProc> prepared;
  };
  struct Listener {
    AudioObjectID object;
    ListenedProperty property;
    ::ac::SerialQueue* queue;
    ListenerBlock block;
    // Cleared on removal; a block already queued checks it before running.
    std::shared_ptr<std::atomic<bool>> active;
  };
  // A device as one snapshot shows it.
  struct DeviceView {
    ObjectKind kind;
    std::string uid;
    std::string name;
    DeviceStreams streams;
  };

  OSStatus snapshot(Snapshot& out);
  // Resolves an ID against a fresh snapshot; kBadObjectErr for unknown or
  // gone.
  OSStatus view(AudioObjectID id, DeviceView& out);
  // The sink a tap records now (mutex_ held).
  std::string tapSinkLocked(AudioObjectID tapID, const Tap& tap, const Snapshot& snap) const;
  // The live aggregate of a tap (the newest), or none (mutex_ held).
  const Aggregate* aggregateOfTapLocked(AudioObjectID tapID) const;
  // Fires tap-format listeners whose tap's rate or channels moved (mutex_
  // held).
  void checkTapShapesLocked(const Snapshot& snap);
  void fireLocked(const std::function<bool(const Listener&)>& matches);
  void onServerChange(const Snapshot& before, const Snapshot& after);
  // Subscribes to server changes once; non-zero when the server is away.
  OSStatus ensureWatching();

  std::shared_ptr<PulseConnection> connection_;
  ObjectIds ids_;

  mutable std::mutex mutex_;
  std::map<AudioObjectID, Tap> taps_;
  std::map<AudioObjectID, Aggregate> aggregates_;
  struct IOProcRecord {
    AudioObjectID device;
    std::shared_ptr<PulseIOProc> proc;
  };
  std::map<IOProcID, IOProcRecord> ioProcs_;
  std::map<ListenerID, Listener> listeners_;
  uint64_t nextTapNumber_ = 1;
  IOProcID nextIOProc_ = 1;
  ListenerID nextListener_ = 1;
  // An IOProc reported its output lost with the server: once the server
  // names a default output again, its listeners hear that it is back, even
  // when it is the same one.
  bool outputLostToServer_ = false;
  // A new IOProc on a connection of its own, not yet bound to a block.
  std::shared_ptr<PulseIOProc> makeIOProc();
  // Makes the aggregate's IOProc ahead and connects its stream corked;
  // blocks on the server (mutex_ not held). A failure costs nothing: the
  // start makes the stream then.
  void prepareIOProc(AudioObjectID aggregate, const std::string& monitor, uint32_t rate);
  // The rate an IOProc on `agg` records at (mutex_ held).
  uint32_t ioProcRateLocked(const Aggregate& agg, const SinkInfo& master) const;

  // Taken without mutex_: subscribing waits on the watch queue, whose
  // subscriber takes mutex_.
  std::mutex watchMutex_;
  std::shared_ptr<PulseWatch> watch_;
  uint64_t watchToken_ = 0;
};

}  // namespace ac::platform::linux_backend
