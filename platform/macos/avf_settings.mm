#include "platform/macos/avf_settings.h"

#import <AVFoundation/AVFoundation.h>

namespace ac::platform::macos {

NSDictionary<NSString*, id>* writerSettingsDictionary(const AudioOutputSettings& settings) {
  return @{
    AVFormatIDKey : @(settings.formatID),
    AVSampleRateKey : @(settings.sampleRate),
    AVNumberOfChannelsKey : @(settings.channels),
    AVEncoderBitRateKey : @(settings.bitRate),
  };
}

AudioOutputSettings writerSettingsFrom(NSDictionary<NSString*, id>* dictionary) {
  AudioOutputSettings settings;
  settings.formatID = [dictionary[AVFormatIDKey] unsignedIntValue];
  settings.sampleRate = [dictionary[AVSampleRateKey] doubleValue];
  settings.channels = [dictionary[AVNumberOfChannelsKey] intValue];
  settings.bitRate = [dictionary[AVEncoderBitRateKey] intValue];
  return settings;
}

NSDictionary<NSString*, id>* captureSettingsDictionary(const CaptureAudioSettings& settings) {
  return @{
    AVFormatIDKey : @(settings.formatID),
    AVSampleRateKey : @(settings.sampleRate),
    AVNumberOfChannelsKey : @(settings.channels),
    AVLinearPCMBitDepthKey : @(settings.bitDepth),
    AVLinearPCMIsFloatKey : @(settings.isFloat),
    AVLinearPCMIsBigEndianKey : @(settings.isBigEndian),
    AVLinearPCMIsNonInterleaved : @(settings.isNonInterleaved),
  };
}

CaptureAudioSettings captureSettingsFrom(NSDictionary<NSString*, id>* dictionary) {
  CaptureAudioSettings settings;
  settings.formatID = [dictionary[AVFormatIDKey] unsignedIntValue];
  settings.sampleRate = [dictionary[AVSampleRateKey] doubleValue];
  settings.channels = [dictionary[AVNumberOfChannelsKey] intValue];
  settings.bitDepth = [dictionary[AVLinearPCMBitDepthKey] intValue];
  settings.isFloat = [dictionary[AVLinearPCMIsFloatKey] boolValue];
  settings.isBigEndian = [dictionary[AVLinearPCMIsBigEndianKey] boolValue];
  settings.isNonInterleaved = [dictionary[AVLinearPCMIsNonInterleaved] boolValue];
  return settings;
}

}  // namespace ac::platform::macos
