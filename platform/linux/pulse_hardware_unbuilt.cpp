// Taps, aggregates, IOProcs and listeners are not built yet: every call
// reports kUnimplementedErr so nothing pretends to capture.
#include "platform/linux/pulse_audio_hardware.h"

namespace ac::platform::linux_backend {

OSStatus PulseAudioHardware::createProcessTap(const TapDescription&, AudioObjectID&) { return kUnimplementedErr; }
OSStatus PulseAudioHardware::destroyProcessTap(AudioObjectID) { return kUnimplementedErr; }
OSStatus PulseAudioHardware::tapUID(AudioObjectID, std::optional<std::string>&) { return kUnimplementedErr; }
OSStatus PulseAudioHardware::tapFormat(AudioObjectID, StreamFormat&) { return kUnimplementedErr; }
OSStatus PulseAudioHardware::createAggregateDevice(const nlohmann::json&, AudioObjectID&) { return kUnimplementedErr; }
OSStatus PulseAudioHardware::destroyAggregateDevice(AudioObjectID) { return kUnimplementedErr; }
OSStatus PulseAudioHardware::createIOProc(AudioObjectID, const std::string&, IOBlock, IOProcID&) {
  return kUnimplementedErr;
}
OSStatus PulseAudioHardware::startDevice(AudioObjectID, IOProcID) { return kUnimplementedErr; }
OSStatus PulseAudioHardware::stopDevice(AudioObjectID, IOProcID) { return kUnimplementedErr; }
OSStatus PulseAudioHardware::destroyIOProc(AudioObjectID, IOProcID) { return kUnimplementedErr; }
OSStatus PulseAudioHardware::addPropertyListener(AudioObjectID, ListenedProperty, ::ac::SerialQueue&, ListenerBlock,
                                                 ListenerID&) {
  return kUnimplementedErr;
}
OSStatus PulseAudioHardware::removePropertyListener(AudioObjectID, ListenedProperty, ListenerID) {
  return kUnimplementedErr;
}

}  // namespace ac::platform::linux_backend
