// The microphone seam: capture devices, a capture session with one device
// input and one audio data output, sample delivery, disconnect and
// runtime-error notifications, and microphone authorization.
//
// Shapes follow the platform capture framework so its backend is a thin
// translation; every decision (device choice, fallback, recovery) is the
// core's, except reconnecting to the sound service, which is transport: a
// running session whose service restarts and returns within a short window
// records the same device again (the core sees a pause in the buffers); a
// service that stays away ends the session with a runtime error of the
// device-loss class ("media services were reset").
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/audio_types.h"
#include "support/error.h"

namespace ac {
class SerialQueue;
}

namespace ac::platform {

// The capture framework's error domain: its runtime-error codes are read by
// the core's table (recorder/mic_recovery.h).
inline constexpr const char* kCaptureErrorDomain = "AVFoundationErrorDomain";

// Why a running session stopped, as a backend that knows it reports it: a
// runtime error in kMicStopDomain whose code is the kind, and whose
// description is the platform's own words. A backend without such knowledge
// passes its platform's error through; any other domain reads as deviceLost.
enum class MicStopKind : int64_t {
  deviceLost = 1,    // the device is gone: rebuild the input
  transient = 2,     // the device is still there: restart the session
  serviceReset = 3,  // the sound service restarted: rebuild the input
};
inline constexpr const char* kMicStopDomain = "audio-capture.mic-stop";
inline Error micStopError(MicStopKind kind, std::string description) {
  return Error{kMicStopDomain, static_cast<int64_t>(kind), std::move(description)};
}

enum class MicAuthorization : int { notDetermined = 0, restricted = 1, denied = 2, authorized = 3 };

class CaptureDevice {
 public:
  virtual ~CaptureDevice() = default;
  virtual std::string uniqueID() const = 0;
  virtual std::string localizedName() const = 0;
  virtual bool isConnected() const = 0;
  // The device's active format; absent when it cannot be read.
  virtual std::optional<AudioFormatDescription> activeFormat() const = 0;
};

class CaptureDeviceInput {
 public:
  virtual ~CaptureDeviceInput() = default;
  virtual std::shared_ptr<CaptureDevice> device() const = 0;
};

// The output's requested PCM format (key for key the platform's settings).
struct CaptureAudioSettings {
  uint32_t formatID = kAudioFormatLinearPCM;
  double sampleRate = 48000;
  int channels = 1;
  int bitDepth = 32;
  bool isFloat = true;
  bool isBigEndian = false;
  bool isNonInterleaved = false;
};

// Receives each captured buffer on the queue given with it. The buffer is
// lent for the call; the handler copies what it keeps.
using SampleBufferHandler = std::function<void(const SampleBuffer&)>;

// Buffers come in the settings' rate and sample format. A mono float request
// may be served at the device's own channel count (interleaved, the format
// saying so) where the platform's mixer would not average the channels; the
// core mixes such buffers down to mono itself.
class AudioDataOutput {
 public:
  virtual ~AudioDataOutput() = default;
  virtual void setAudioSettings(const CaptureAudioSettings& settings) = 0;
  virtual CaptureAudioSettings audioSettings() const = 0;
  // Takes effect at once, also on a running session: every buffer delivered
  // after the call returns goes to this handler on this queue, and a null
  // handler drops them. A delivery already under way on the old queue may
  // still complete with the old handler, so handlers hold their owner weakly.
  // After a null handler is set the backend never touches the old queue.
  virtual void setSampleBufferHandler(SampleBufferHandler handler, ::ac::SerialQueue* queue) = 0;
};

class CaptureSession {
 public:
  virtual ~CaptureSession() = default;
  virtual void beginConfiguration() = 0;
  virtual void commitConfiguration() = 0;
  virtual bool canAddInput(const std::shared_ptr<CaptureDeviceInput>& input) = 0;
  virtual void addInput(const std::shared_ptr<CaptureDeviceInput>& input) = 0;
  virtual void removeInput(const std::shared_ptr<CaptureDeviceInput>& input) = 0;
  virtual bool canAddOutput(const std::shared_ptr<AudioDataOutput>& output) = 0;
  virtual void addOutput(const std::shared_ptr<AudioDataOutput>& output) = 0;
  // startRunning() blocks until the session runs or fails to.
  virtual void startRunning() = 0;
  virtual void stopRunning() = 0;
  virtual bool isRunning() = 0;
};

using ObserverToken = uint64_t;  // 0 = none

class MicCapture {
 public:
  virtual ~MicCapture() = default;

  virtual MicAuthorization authorizationStatus() = 0;
  // Calls completion (any thread) once the user answered.
  virtual void requestAccess(std::function<void(bool granted)> completion) = 0;

  virtual std::shared_ptr<CaptureDevice> defaultAudioDevice() = 0;
  virtual std::shared_ptr<CaptureDevice> deviceWithUniqueID(const std::string& uid) = 0;

  // Null with `error` filled when the device cannot be opened.
  virtual std::shared_ptr<CaptureDeviceInput> makeDeviceInput(const std::shared_ptr<CaptureDevice>& device,
                                                              Error& error) = 0;
  virtual std::shared_ptr<AudioDataOutput> makeAudioDataOutput() = 0;
  virtual std::shared_ptr<CaptureSession> makeSession() = 0;

  // Observers. After removeObserver returns the backend never touches the
  // queue the observer was given; a call it already queued there may still
  // run, so handlers hold their owner weakly.
  //
  // Device-disconnected notification, for any device. The handler receives
  // the device (null when the notification names none) on `queue`, or on the
  // posting thread when queue is null.
  virtual ObserverToken observeDeviceDisconnected(
      ::ac::SerialQueue* queue, std::function<void(std::shared_ptr<CaptureDevice>)> handler) = 0;
  // Runtime errors of one session; the handler receives the error (absent
  // when the notification carried none), see MicStopKind.
  virtual ObserverToken observeRuntimeError(const std::shared_ptr<CaptureSession>& session,
                                            ::ac::SerialQueue* queue,
                                            std::function<void(std::optional<Error>)> handler) = 0;
  virtual void removeObserver(ObserverToken token) = 0;
};

}  // namespace ac::platform
