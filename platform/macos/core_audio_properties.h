// Every Core Audio property the hardware seam reads or listens to, with its
// scope and element, in one table so the addresses can be checked at a
// glance (and by tests).
#pragma once

#include <CoreAudio/CoreAudio.h>

#include "platform/audio_hardware.h"

namespace ac::platform::macos {

// Which of the seam's reads a property address serves.
enum class PropertyRead {
  defaultOutputDevice,      // system object, 4-byte object ID
  deviceUID,                // device, CFString reference
  objectName,               // any object, CFString reference
  devices,                  // system object, array of object IDs
  translateUIDToDevice,     // system object, CFString qualifier, object ID
  tapUID,                   // tap, CFString reference
  tapFormat,                // tap, 40-byte stream description
};

constexpr AudioObjectPropertyAddress globalMain(AudioObjectPropertySelector selector) {
  return {selector, kAudioObjectPropertyScopeGlobal, kAudioObjectPropertyElementMain};
}

constexpr AudioObjectPropertyScope coreAudioScope(Scope scope) {
  switch (scope) {
    case Scope::input:
      return kAudioObjectPropertyScopeInput;
    case Scope::output:
      return kAudioObjectPropertyScopeOutput;
    case Scope::global:
      break;
  }
  return kAudioObjectPropertyScopeGlobal;
}

constexpr AudioObjectPropertyAddress readAddress(PropertyRead read) {
  switch (read) {
    case PropertyRead::defaultOutputDevice:
      return globalMain(kAudioHardwarePropertyDefaultOutputDevice);
    case PropertyRead::deviceUID:
      return globalMain(kAudioDevicePropertyDeviceUID);
    case PropertyRead::objectName:
      return globalMain(kAudioObjectPropertyName);
    case PropertyRead::devices:
      return globalMain(kAudioHardwarePropertyDevices);
    case PropertyRead::translateUIDToDevice:
      return globalMain(kAudioHardwarePropertyTranslateUIDToDevice);
    case PropertyRead::tapUID:
      return globalMain(kAudioTapPropertyUID);
    case PropertyRead::tapFormat:
      break;
  }
  return globalMain(kAudioTapPropertyFormat);
}

// A device's streams, or its stream configuration, in one scope.
constexpr AudioObjectPropertyAddress streamsAddress(Scope scope) {
  return {kAudioDevicePropertyStreams, coreAudioScope(scope), kAudioObjectPropertyElementMain};
}
constexpr AudioObjectPropertyAddress streamConfigurationAddress(Scope scope) {
  return {kAudioDevicePropertyStreamConfiguration, coreAudioScope(scope), kAudioObjectPropertyElementMain};
}

constexpr AudioObjectPropertyAddress listenedAddress(ListenedProperty property) {
  switch (property) {
    case ListenedProperty::defaultOutputDevice:
      return globalMain(kAudioHardwarePropertyDefaultOutputDevice);
    case ListenedProperty::defaultInputDevice:
      return globalMain(kAudioHardwarePropertyDefaultInputDevice);
    case ListenedProperty::tapFormat:
      break;
  }
  return globalMain(kAudioTapPropertyFormat);
}

}  // namespace ac::platform::macos
