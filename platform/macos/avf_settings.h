// The settings dictionaries AVFoundation takes: the asset writer's AAC
// output settings (exactly four keys) and the capture output's PCM format
// (exactly seven keys). Objective-C++: include from .mm files only.
#pragma once

#ifndef __OBJC__
#error "avf_settings.h declares Objective-C types; include it from .mm files only"
#endif

#import <Foundation/Foundation.h>

#include "platform/asset_writer.h"
#include "platform/mic_capture.h"

namespace ac::platform::macos {

// AVFormatIDKey, AVSampleRateKey (double), AVNumberOfChannelsKey and
// AVEncoderBitRateKey (integers).
NSDictionary<NSString*, id>* writerSettingsDictionary(const AudioOutputSettings& settings);
// Missing keys read as 0.
AudioOutputSettings writerSettingsFrom(NSDictionary<NSString*, id>* dictionary);

// AVFormatIDKey, AVSampleRateKey, AVNumberOfChannelsKey,
// AVLinearPCMBitDepthKey, AVLinearPCMIsFloatKey, AVLinearPCMIsBigEndianKey,
// AVLinearPCMIsNonInterleaved.
NSDictionary<NSString*, id>* captureSettingsDictionary(const CaptureAudioSettings& settings);
// Missing keys read as 0 or false.
CaptureAudioSettings captureSettingsFrom(NSDictionary<NSString*, id>* dictionary);

}  // namespace ac::platform::macos
