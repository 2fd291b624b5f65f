// Placeholder for the PulseAudio audio-hardware backend: every call reports
// kUnimplementedErr so nothing pretends to succeed.
#include <chrono>

#include "platform/linux/backends.h"

namespace ac::platform::linux_backend {
namespace {
class Unbuilt final : public AudioHardware {
 public:
  OSStatus defaultOutputDevice(AudioObjectID&) override { return kUnimplementedErr; }
  OSStatus deviceUID(AudioObjectID, std::optional<std::string>&) override { return kUnimplementedErr; }
  OSStatus objectName(AudioObjectID, std::optional<std::string>&) override { return kUnimplementedErr; }
  OSStatus deviceListByteSize(uint32_t&) override { return kUnimplementedErr; }
  OSStatus deviceList(std::vector<AudioObjectID>&) override { return kUnimplementedErr; }
  OSStatus streamsByteSize(AudioObjectID, Scope, uint32_t&) override { return kUnimplementedErr; }
  OSStatus translateUIDToDevice(const std::string&, AudioObjectID&) override { return kUnimplementedErr; }
  OSStatus streamConfigurationByteSize(AudioObjectID, Scope, uint32_t&) override { return kUnimplementedErr; }
  OSStatus streamConfiguration(AudioObjectID, Scope, void*, uint32_t&) override { return kUnimplementedErr; }
  OSStatus createProcessTap(const TapDescription&, AudioObjectID&) override { return kUnimplementedErr; }
  OSStatus destroyProcessTap(AudioObjectID) override { return kUnimplementedErr; }
  OSStatus tapUID(AudioObjectID, std::optional<std::string>&) override { return kUnimplementedErr; }
  OSStatus tapFormat(AudioObjectID, StreamFormat&) override { return kUnimplementedErr; }
  OSStatus createAggregateDevice(const nlohmann::json&, AudioObjectID&) override { return kUnimplementedErr; }
  OSStatus destroyAggregateDevice(AudioObjectID) override { return kUnimplementedErr; }
  OSStatus createIOProc(AudioObjectID, const std::string&, IOBlock, IOProcID&) override { return kUnimplementedErr; }
  OSStatus startDevice(AudioObjectID, IOProcID) override { return kUnimplementedErr; }
  OSStatus stopDevice(AudioObjectID, IOProcID) override { return kUnimplementedErr; }
  OSStatus destroyIOProc(AudioObjectID, IOProcID) override { return kUnimplementedErr; }
  OSStatus addPropertyListener(AudioObjectID, ListenedProperty, ::ac::SerialQueue&, ListenerBlock,
                               ListenerID&) override {
    return kUnimplementedErr;
  }
  OSStatus removePropertyListener(AudioObjectID, ListenedProperty, ListenerID) override { return kUnimplementedErr; }
  uint64_t hostTimeNow() override {
    return uint64_t(std::chrono::duration_cast<std::chrono::nanoseconds>(
                        std::chrono::steady_clock::now().time_since_epoch()).count());
  }
  void hostTimebase(uint32_t& numer, uint32_t& denom) override { numer = denom = 1; }
};
}  // namespace
std::unique_ptr<AudioHardware> makePulseAudioHardware() { return std::make_unique<Unbuilt>(); }
}  // namespace ac::platform::linux_backend
