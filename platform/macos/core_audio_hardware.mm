// Device queries, process taps and aggregate devices of the Core Audio
// hardware seam. IOProcs and listeners are in core_audio_ioprocs.mm and
// core_audio_listeners.mm.
#include "platform/macos/core_audio_hardware.h"

// The tap calls are declared apart from CoreAudio.h and CATapDescription.h.
#import <CoreAudio/AudioHardwareTapping.h>
#import <CoreAudio/CATapDescription.h>
#import <Foundation/Foundation.h>
#include <mach/mach_time.h>

#include "platform/macos/backends.h"
#include "platform/macos/cf_convert.h"
#include "platform/macos/core_audio_properties.h"
#include "platform/macos/core_audio_types.h"
#include "platform/macos/owned_queue.h"

namespace ac::platform::macos {
namespace {

// Reads a CFString property; the HAL hands over a reference we release.
OSStatus readString(AudioObjectID object, PropertyRead read, std::optional<std::string>& out) {
  const AudioObjectPropertyAddress address = readAddress(read);
  CFStringRef string = nullptr;
  UInt32 size = sizeof string;
  OSStatus status = AudioObjectGetPropertyData(object, &address, 0, nullptr, &size, &string);
  out.reset();
  if (string) {
    if (status == noErr) out = toStdString(string);
    CFRelease(string);
  }
  return status;
}

}  // namespace

CoreAudioHardware::CoreAudioHardware()
    : listenerQueue_(makeOwnedSerialQueue("audio-capture.property-listeners")) {}

CoreAudioHardware::~CoreAudioHardware() {
  std::lock_guard<std::mutex> lock(mutex_);
  for (auto& [id, listener] : listeners_) {
    const AudioObjectPropertyAddress address = listenedAddress(listener.property);
    AudioObjectRemovePropertyListenerBlock(listener.object, &address, listenerQueue_, listener.installed);
    listener.forward->active = false;
  }
  listeners_.clear();
  drainQueue(listenerQueue_);
}

OSStatus CoreAudioHardware::defaultOutputDevice(AudioObjectID& out) {
  const AudioObjectPropertyAddress address = readAddress(PropertyRead::defaultOutputDevice);
  UInt32 size = sizeof out;
  return AudioObjectGetPropertyData(kAudioObjectSystemObject, &address, 0, nullptr, &size, &out);
}

OSStatus CoreAudioHardware::deviceUID(AudioObjectID device, std::optional<std::string>& out) {
  return readString(device, PropertyRead::deviceUID, out);
}

OSStatus CoreAudioHardware::objectName(AudioObjectID object, std::optional<std::string>& out) {
  return readString(object, PropertyRead::objectName, out);
}

OSStatus CoreAudioHardware::deviceListByteSize(uint32_t& bytes) {
  const AudioObjectPropertyAddress address = readAddress(PropertyRead::devices);
  return AudioObjectGetPropertyDataSize(kAudioObjectSystemObject, &address, 0, nullptr, &bytes);
}

OSStatus CoreAudioHardware::deviceList(std::vector<AudioObjectID>& ids) {
  const AudioObjectPropertyAddress address = readAddress(PropertyRead::devices);
  UInt32 size = static_cast<UInt32>(ids.size() * sizeof(AudioObjectID));
  return AudioObjectGetPropertyData(kAudioObjectSystemObject, &address, 0, nullptr, &size, ids.data());
}

OSStatus CoreAudioHardware::streamsByteSize(AudioObjectID device, Scope scope, uint32_t& bytes) {
  const AudioObjectPropertyAddress address = streamsAddress(scope);
  return AudioObjectGetPropertyDataSize(device, &address, 0, nullptr, &bytes);
}

OSStatus CoreAudioHardware::translateUIDToDevice(const std::string& uid, AudioObjectID& out) {
  const AudioObjectPropertyAddress address = readAddress(PropertyRead::translateUIDToDevice);
  NSString* uidString NS_VALID_UNTIL_END_OF_SCOPE = toNSString(uid);
  CFStringRef qualifier = (__bridge CFStringRef)uidString;
  UInt32 size = sizeof out;
  return AudioObjectGetPropertyData(kAudioObjectSystemObject, &address, sizeof qualifier, &qualifier, &size, &out);
}

OSStatus CoreAudioHardware::streamConfigurationByteSize(AudioObjectID device, Scope scope, uint32_t& bytes) {
  const AudioObjectPropertyAddress address = streamConfigurationAddress(scope);
  return AudioObjectGetPropertyDataSize(device, &address, 0, nullptr, &bytes);
}

OSStatus CoreAudioHardware::streamConfiguration(AudioObjectID device, Scope scope, void* data, uint32_t& ioBytes) {
  const AudioObjectPropertyAddress address = streamConfigurationAddress(scope);
  return AudioObjectGetPropertyData(device, &address, 0, nullptr, &ioBytes, data);
}

OSStatus CoreAudioHardware::createProcessTap(const TapDescription& description, AudioObjectID& outTap) {
  // Only the stereo mix of every process (less the exclusions) is offered.
  if (!description.stereoGlobal) return kUnimplementedErr;
  NSMutableArray<NSNumber*>* excluded = [NSMutableArray array];
  for (AudioObjectID process : description.excludedProcesses) [excluded addObject:@(process)];
  CATapDescription* tap = [[CATapDescription alloc] initStereoGlobalTapButExcludeProcesses:excluded];
  tap.muteBehavior = description.muted ? CATapMuted : CATapUnmuted;
  tap.privateTap = description.isPrivate;
  return AudioHardwareCreateProcessTap(tap, &outTap);
}

OSStatus CoreAudioHardware::destroyProcessTap(AudioObjectID tap) { return AudioHardwareDestroyProcessTap(tap); }

OSStatus CoreAudioHardware::tapUID(AudioObjectID tap, std::optional<std::string>& out) {
  return readString(tap, PropertyRead::tapUID, out);
}

OSStatus CoreAudioHardware::tapFormat(AudioObjectID tap, StreamFormat& out) {
  const AudioObjectPropertyAddress address = readAddress(PropertyRead::tapFormat);
  AudioStreamBasicDescription asbd{};
  UInt32 size = sizeof asbd;
  OSStatus status = AudioObjectGetPropertyData(tap, &address, 0, nullptr, &size, &asbd);
  if (status == noErr) out = seamFormat(asbd);
  return status;
}

OSStatus CoreAudioHardware::createAggregateDevice(const nlohmann::json& description, AudioObjectID& out) {
  id dictionary NS_VALID_UNTIL_END_OF_SCOPE = toPropertyList(description);
  if (![dictionary isKindOfClass:[NSDictionary class]]) return kAudio_ParamError;
  return AudioHardwareCreateAggregateDevice((__bridge CFDictionaryRef)dictionary, &out);
}

OSStatus CoreAudioHardware::destroyAggregateDevice(AudioObjectID aggregate) {
  return AudioHardwareDestroyAggregateDevice(aggregate);
}

uint64_t CoreAudioHardware::hostTimeNow() { return mach_absolute_time(); }

void CoreAudioHardware::hostTimebase(uint32_t& numer, uint32_t& denom) {
  mach_timebase_info_data_t timebase{};
  mach_timebase_info(&timebase);
  numer = timebase.numer;
  denom = timebase.denom;
}

std::unique_ptr<AudioHardware> makeCoreAudioHardware() { return std::make_unique<CoreAudioHardware>(); }

}  // namespace ac::platform::macos
