#include "platform/macos/avf_capture_objects.h"

#include <string>

#include "platform/macos/avf_sample_buffers.h"
#include "platform/macos/avf_settings.h"
#include "platform/macos/cf_convert.h"
#include "platform/macos/owned_queue.h"
#include "support/dispatch.h"
#include "support/log.h"

using ac::platform::macos::SampleSink;

// The output's delegate: copies each buffer and forwards it to the sink.
@interface ACSampleBufferRelay : NSObject <AVCaptureAudioDataOutputSampleBufferDelegate>
- (instancetype)initWithSink:(std::weak_ptr<SampleSink>)sink;
@end

@implementation ACSampleBufferRelay {
  std::weak_ptr<SampleSink> _sink;
  int64_t _copyFailures;  // touched only on the output's serial queue
}

- (instancetype)initWithSink:(std::weak_ptr<SampleSink>)sink {
  if ((self = [super init])) _sink = std::move(sink);
  return self;
}

- (void)captureOutput:(AVCaptureOutput*)output
    didOutputSampleBuffer:(CMSampleBufferRef)sampleBuffer
           fromConnection:(AVCaptureConnection*)connection {
  std::shared_ptr<SampleSink> sink = _sink.lock();
  if (!sink || !sink->handler) return;
  ac::platform::SampleBuffer copy;
  OSStatus status = ac::platform::macos::copySampleBuffer(sampleBuffer, copy);
  if (status != noErr) {
    if (ac::shouldLogFailureCount(++_copyFailures))
      ac::log("mic capture: could not copy a sample buffer (status " + std::to_string(status) + ", n=" +
              std::to_string(_copyFailures) + ")");
    return;
  }
  if (!sink->queue) {
    sink->handler(copy);
    return;
  }
  sink->queue->async([sink, copy = std::move(copy)] { sink->handler(copy); });
}

@end

namespace ac::platform::macos {

std::string AVFCaptureDevice::uniqueID() const { return toStdString(device_.uniqueID); }
std::string AVFCaptureDevice::localizedName() const { return toStdString(device_.localizedName); }
bool AVFCaptureDevice::isConnected() const { return device_.connected; }

std::optional<AudioFormatDescription> AVFCaptureDevice::activeFormat() const {
  return toFormatDescription(device_.activeFormat.formatDescription);
}

std::shared_ptr<CaptureDevice> wrapDevice(AVCaptureDevice* device) {
  if (!device) return nullptr;
  return std::make_shared<AVFCaptureDevice>(device);
}

AVCaptureDevice* deviceOf(const std::shared_ptr<CaptureDevice>& device) {
  auto* ours = dynamic_cast<AVFCaptureDevice*>(device.get());
  return ours ? ours->device() : nil;
}

AVFAudioDataOutput::AVFAudioDataOutput()
    : output_([[AVCaptureAudioDataOutput alloc] init]),
      queue_(makeOwnedSerialQueue("audio-capture.mic-output")) {}

AVFAudioDataOutput::~AVFAudioDataOutput() { setSampleBufferHandler(nullptr, nullptr); }

void AVFAudioDataOutput::setAudioSettings(const CaptureAudioSettings& settings) {
  output_.audioSettings = captureSettingsDictionary(settings);
}

CaptureAudioSettings AVFAudioDataOutput::audioSettings() const { return captureSettingsFrom(output_.audioSettings); }

void AVFAudioDataOutput::setSampleBufferHandler(SampleBufferHandler handler, ::ac::SerialQueue* queue) {
  ACSampleBufferRelay* previous = relay_;
  sink_.reset();
  relay_ = nil;
  if (handler) {
    sink_ = std::make_shared<SampleSink>(SampleSink{std::move(handler), queue});
    relay_ = [[ACSampleBufferRelay alloc] initWithSink:sink_];
  }
  [output_ setSampleBufferDelegate:relay_ queue:relay_ ? queue_ : nil];
  // A buffer being forwarded right now reaches its queue before we return.
  // Called from that very delivery (a handler replacing itself or dropping
  // the last reference to this output), the framework is still inside the
  // previous relay and this output: both outlive it.
  drainQueue(queue_, [NSArray arrayWithObjects:output_, previous, nil]);
}

namespace {

AVCaptureDeviceInput* inputOf(const std::shared_ptr<CaptureDeviceInput>& input) {
  auto* ours = dynamic_cast<AVFCaptureDeviceInput*>(input.get());
  return ours ? ours->input() : nil;
}

AVCaptureAudioDataOutput* outputOf(const std::shared_ptr<AudioDataOutput>& output) {
  auto* ours = dynamic_cast<AVFAudioDataOutput*>(output.get());
  return ours ? ours->output() : nil;
}

}  // namespace

bool AVFCaptureSession::canAddInput(const std::shared_ptr<CaptureDeviceInput>& input) {
  AVCaptureDeviceInput* in = inputOf(input);
  return in && [session_ canAddInput:in];
}

void AVFCaptureSession::addInput(const std::shared_ptr<CaptureDeviceInput>& input) {
  if (AVCaptureDeviceInput* in = inputOf(input)) [session_ addInput:in];
}

void AVFCaptureSession::removeInput(const std::shared_ptr<CaptureDeviceInput>& input) {
  if (AVCaptureDeviceInput* in = inputOf(input)) [session_ removeInput:in];
}

bool AVFCaptureSession::canAddOutput(const std::shared_ptr<AudioDataOutput>& output) {
  AVCaptureAudioDataOutput* out = outputOf(output);
  return out && [session_ canAddOutput:out];
}

void AVFCaptureSession::addOutput(const std::shared_ptr<AudioDataOutput>& output) {
  if (AVCaptureAudioDataOutput* out = outputOf(output)) [session_ addOutput:out];
}

}  // namespace ac::platform::macos
