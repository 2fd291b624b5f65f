// The microphone seam on AVFoundation: authorization, capture devices, the
// objects of avf_capture_objects.h, and the device-disconnected and
// session-runtime-error notifications.
//
// Observers are registered on the default notification centre with no
// operation queue, so their blocks run on the posting thread and forward to
// the core's queue (or call the handler right there when it gave none).
// Once removeObserver returns nothing more is queued for the handler; a
// direct call already under way may still finish.
#include <map>
#include <mutex>

#import <AVFoundation/AVFoundation.h>
#include <CoreAudio/CoreAudioTypes.h>

#include "platform/macos/avf_capture_objects.h"
#include "platform/macos/backends.h"
#include "platform/macos/cf_convert.h"
#include "support/dispatch.h"

namespace ac::platform::macos {
namespace {

// One registration; shared with the notification block.
struct Observer {
  std::mutex mutex;
  ::ac::SerialQueue* queue = nullptr;
  bool active = true;
  id<NSObject> registration;
};

void deliver(const std::shared_ptr<Observer>& observer, Block call) {
  std::unique_lock<std::mutex> lock(observer->mutex);
  if (!observer->active) return;
  if (observer->queue) {
    observer->queue->async(std::move(call));
    return;
  }
  lock.unlock();  // the handler may remove this very observer
  call();
}

class AVFMicCapture final : public MicCapture {
 public:
  MicAuthorization authorizationStatus() override {
    return static_cast<MicAuthorization>([AVCaptureDevice authorizationStatusForMediaType:AVMediaTypeAudio]);
  }

  void requestAccess(std::function<void(bool granted)> completion) override {
    [AVCaptureDevice requestAccessForMediaType:AVMediaTypeAudio
                             completionHandler:^(BOOL granted) {
                               completion(granted);
                             }];
  }

  std::shared_ptr<CaptureDevice> defaultAudioDevice() override {
    return wrapDevice([AVCaptureDevice defaultDeviceWithMediaType:AVMediaTypeAudio]);
  }

  std::shared_ptr<CaptureDevice> deviceWithUniqueID(const std::string& uid) override {
    return wrapDevice([AVCaptureDevice deviceWithUniqueID:toNSString(uid)]);
  }

  std::shared_ptr<CaptureDeviceInput> makeDeviceInput(const std::shared_ptr<CaptureDevice>& device,
                                                      Error& error) override {
    AVCaptureDevice* avDevice = deviceOf(device);
    if (!avDevice) {  // the framework raises rather than fail on nil
      error = Error{kErrorDomain, kAudio_ParamError, "no capture device of this platform given"};
      return nullptr;
    }
    NSError* failure = nil;
    AVCaptureDeviceInput* input = [AVCaptureDeviceInput deviceInputWithDevice:avDevice error:&failure];
    if (!input) {
      error = toError(failure);
      return nullptr;
    }
    return std::make_shared<AVFCaptureDeviceInput>(input);
  }

  std::shared_ptr<AudioDataOutput> makeAudioDataOutput() override { return std::make_shared<AVFAudioDataOutput>(); }

  std::shared_ptr<CaptureSession> makeSession() override { return std::make_shared<AVFCaptureSession>(); }

  ObserverToken observeDeviceDisconnected(::ac::SerialQueue* queue,
                                          std::function<void(std::shared_ptr<CaptureDevice>)> handler) override {
    auto observer = makeObserver(queue);
    observer->registration =
        [NSNotificationCenter.defaultCenter addObserverForName:AVCaptureDeviceWasDisconnectedNotification
                                                        object:nil
                                                         queue:nil
                                                    usingBlock:^(NSNotification* note) {
                                                      id object = note.object;
                                                      auto device = wrapDevice(
                                                          [object isKindOfClass:[AVCaptureDevice class]] ? object : nil);
                                                      deliver(observer, [handler, device] { handler(device); });
                                                    }];
    return keep(observer);
  }

  ObserverToken observeRuntimeError(const std::shared_ptr<CaptureSession>& session, ::ac::SerialQueue* queue,
                                    std::function<void(std::optional<Error>)> handler) override {
    auto* ours = dynamic_cast<AVFCaptureSession*>(session.get());
    if (!ours) return 0;
    auto observer = makeObserver(queue);
    observer->registration =
        [NSNotificationCenter.defaultCenter addObserverForName:AVCaptureSessionRuntimeErrorNotification
                                                        object:ours->session()
                                                         queue:nil
                                                    usingBlock:^(NSNotification* note) {
                                                      id object = note.userInfo[AVCaptureSessionErrorKey];
                                                      auto error = toOptionalError(
                                                          [object isKindOfClass:[NSError class]] ? object : nil);
                                                      deliver(observer, [handler, error] { handler(error); });
                                                    }];
    return keep(observer);
  }

  void removeObserver(ObserverToken token) override {
    std::shared_ptr<Observer> observer;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      auto it = observers_.find(token);
      if (it == observers_.end()) return;
      observer = std::move(it->second);
      observers_.erase(it);
    }
    [NSNotificationCenter.defaultCenter removeObserver:observer->registration];
    std::lock_guard<std::mutex> lock(observer->mutex);
    observer->active = false;
    observer->registration = nil;  // it holds the block, which holds the observer
  }

 private:
  static std::shared_ptr<Observer> makeObserver(::ac::SerialQueue* queue) {
    auto observer = std::make_shared<Observer>();
    observer->queue = queue;
    return observer;
  }

  ObserverToken keep(std::shared_ptr<Observer> observer) {
    std::lock_guard<std::mutex> lock(mutex_);
    ObserverToken token = nextToken_++;
    observers_[token] = std::move(observer);
    return token;
  }

  std::mutex mutex_;
  std::map<ObserverToken, std::shared_ptr<Observer>> observers_;
  ObserverToken nextToken_ = 1;
};

static_assert(static_cast<int>(MicAuthorization::notDetermined) == AVAuthorizationStatusNotDetermined);
static_assert(static_cast<int>(MicAuthorization::restricted) == AVAuthorizationStatusRestricted);
static_assert(static_cast<int>(MicAuthorization::denied) == AVAuthorizationStatusDenied);
static_assert(static_cast<int>(MicAuthorization::authorized) == AVAuthorizationStatusAuthorized);

}  // namespace

std::unique_ptr<MicCapture> makeAVFMicCapture() { return std::make_unique<AVFMicCapture>(); }

}  // namespace ac::platform::macos
