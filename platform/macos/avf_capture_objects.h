// The capture seam's objects on AVFoundation: a capture device, a device
// input, the audio data output and the capture session, each holding the
// framework object it translates for. Objective-C++: include from .mm files
// only.
#pragma once

#ifndef __OBJC__
#error "avf_capture_objects.h holds Objective-C objects; include it from .mm files only"
#endif

#import <AVFoundation/AVFoundation.h>

#include <memory>

#include "platform/mic_capture.h"

@class ACSampleBufferRelay;

namespace ac::platform::macos {

class AVFCaptureDevice final : public CaptureDevice {
 public:
  explicit AVFCaptureDevice(AVCaptureDevice* device) : device_(device) {}
  std::string uniqueID() const override;
  std::string localizedName() const override;
  bool isConnected() const override;
  std::optional<AudioFormatDescription> activeFormat() const override;
  AVCaptureDevice* device() const { return device_; }

 private:
  AVCaptureDevice* device_;
};

// Null for nil.
std::shared_ptr<CaptureDevice> wrapDevice(AVCaptureDevice* device);
// The framework object behind a seam object of this backend; nil for null
// or for an object of another backend.
AVCaptureDevice* deviceOf(const std::shared_ptr<CaptureDevice>& device);

class AVFCaptureDeviceInput final : public CaptureDeviceInput {
 public:
  explicit AVFCaptureDeviceInput(AVCaptureDeviceInput* input) : input_(input) {}
  std::shared_ptr<CaptureDevice> device() const override { return wrapDevice(input_.device); }
  AVCaptureDeviceInput* input() const { return input_; }

 private:
  AVCaptureDeviceInput* input_;
};

// Where captured buffers go. The output's delegate holds it weakly, so a
// replaced or detached handler is never called again once dropped.
struct SampleSink {
  SampleBufferHandler handler;
  ::ac::SerialQueue* queue = nullptr;
};

// Delivers on a serial dispatch queue of its own ("audio-capture.mic-output"),
// where each buffer is copied into a SampleBuffer and handed to the sink's
// queue (or, with none, to the handler right there).
class AVFAudioDataOutput final : public AudioDataOutput {
 public:
  AVFAudioDataOutput();
  ~AVFAudioDataOutput() override;
  void setAudioSettings(const CaptureAudioSettings& settings) override;
  CaptureAudioSettings audioSettings() const override;
  // Returns once no buffer can reach the previous handler any more, except
  // those already queued on its queue. Safe from a handler running on the
  // output's own queue, the destructor too.
  void setSampleBufferHandler(SampleBufferHandler handler, ::ac::SerialQueue* queue) override;
  AVCaptureAudioDataOutput* output() const { return output_; }

 private:
  AVCaptureAudioDataOutput* output_;
  dispatch_queue_t queue_;
  ACSampleBufferRelay* relay_ = nil;
  std::shared_ptr<SampleSink> sink_;
};

class AVFCaptureSession final : public CaptureSession {
 public:
  AVFCaptureSession() : session_([[AVCaptureSession alloc] init]) {}
  void beginConfiguration() override { [session_ beginConfiguration]; }
  void commitConfiguration() override { [session_ commitConfiguration]; }
  bool canAddInput(const std::shared_ptr<CaptureDeviceInput>& input) override;
  void addInput(const std::shared_ptr<CaptureDeviceInput>& input) override;
  void removeInput(const std::shared_ptr<CaptureDeviceInput>& input) override;
  bool canAddOutput(const std::shared_ptr<AudioDataOutput>& output) override;
  void addOutput(const std::shared_ptr<AudioDataOutput>& output) override;
  void startRunning() override { [session_ startRunning]; }
  void stopRunning() override { [session_ stopRunning]; }
  bool isRunning() override { return session_.running; }
  AVCaptureSession* session() const { return session_; }

 private:
  AVCaptureSession* session_;
};

}  // namespace ac::platform::macos
