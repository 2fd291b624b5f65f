// The backends against the real frameworks, for what runs on any Mac
// without audio hardware, permissions or a bundle: listener bookkeeping,
// notification observers, an AAC file written end to end, and the
// unbundled process's silent notification centre.
#import <AVFoundation/AVFoundation.h>

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <unistd.h>

#include "platform/macos/avf_capture_objects.h"
#include "platform/macos/backends.h"
#include "support/dispatch.h"

namespace {

namespace p = ac::platform;
using namespace ac::platform::macos;

TEST(CoreAudioBackend, ListenersAreRemovedOnceAndOnlyAsInstalled) {
  auto hw = makeCoreAudioHardware();
  ac::SerialQueue queue("test.listeners");
  p::ListenerID id = 0;
  const p::AudioObjectID system = p::kAudioObjectSystemObject;
  ASSERT_EQ(hw->addPropertyListener(system, p::ListenedProperty::defaultOutputDevice, queue, [] {}, id), 0);
  EXPECT_NE(hw->removePropertyListener(system, p::ListenedProperty::defaultInputDevice, id), 0);
  EXPECT_EQ(hw->removePropertyListener(system, p::ListenedProperty::defaultOutputDevice, id), 0);
  EXPECT_NE(hw->removePropertyListener(system, p::ListenedProperty::defaultOutputDevice, id), 0);
}

TEST(MicBackend, ObserversForwardTheNotificationToTheQueueUntilRemoved) {
  auto mic = makeAVFMicCapture();
  auto session = mic->makeSession();
  AVCaptureSession* avSession = dynamic_cast<AVFCaptureSession&>(*session).session();
  ac::SerialQueue queue("test.mic-watch");
  std::atomic<int> calls{0};
  std::optional<ac::Error> seen;
  ac::Semaphore delivered;
  p::ObserverToken token = mic->observeRuntimeError(session, &queue, [&](std::optional<ac::Error> error) {
    EXPECT_TRUE(queue.isCurrent());
    seen = error;
    ++calls;
    delivered.signal();
  });
  ASSERT_NE(token, 0u);
  NSError* reset = [NSError errorWithDomain:AVFoundationErrorDomain
                                       code:-11819
                                   userInfo:@{NSLocalizedDescriptionKey : @"reset"}];
  [NSNotificationCenter.defaultCenter postNotificationName:AVCaptureSessionRuntimeErrorNotification
                                                    object:avSession
                                                  userInfo:@{AVCaptureSessionErrorKey : reset}];
  ASSERT_TRUE(delivered.wait(2.0));
  EXPECT_EQ(seen, (ac::Error{"AVFoundationErrorDomain", -11819, "reset"}));

  mic->removeObserver(token);
  [NSNotificationCenter.defaultCenter postNotificationName:AVCaptureSessionRuntimeErrorNotification
                                                    object:avSession
                                                  userInfo:nil];
  queue.sync([] {});
  EXPECT_EQ(calls, 1);
}

TEST(MicBackend, ADisconnectNamingNoDeviceReachesTheHandlerAsNull) {
  auto mic = makeAVFMicCapture();
  bool called = false;
  std::shared_ptr<p::CaptureDevice> device = std::make_shared<AVFCaptureDevice>(nil);
  p::ObserverToken token = mic->observeDeviceDisconnected(nullptr, [&](std::shared_ptr<p::CaptureDevice> d) {
    called = true;
    device = d;
  });
  [NSNotificationCenter.defaultCenter postNotificationName:AVCaptureDeviceWasDisconnectedNotification object:nil];
  mic->removeObserver(token);
  EXPECT_TRUE(called);
  EXPECT_EQ(device, nullptr);
}

p::SampleBuffer silence(int64_t firstFrame, int64_t frames) {
  p::SampleBuffer s;
  s.format.asbd = p::floatPCMFormat(48000, 2);
  s.timing = {{p::MediaTime::make(1, 48000), p::MediaTime::make(firstFrame, 48000), p::MediaTime::invalid()}};
  s.numSamples = frames;
  s.dataReady = true;
  s.buffers = {std::vector<uint8_t>(size_t(frames) * 8)};
  s.bufferChannels = {2};
  return s;
}

TEST(WriterBackend, WritesAnAACFileEndToEnd) {
  const std::string path = (std::filesystem::temp_directory_path() / "ac-writer-backend-test.m4a").string();
  std::filesystem::remove(path);
  auto factory = makeAVFWriterFactory();
  ac::Error error;
  auto writer = factory->makeMPEG4Writer(path, p::MediaTime::make(3000, 600), error);
  ASSERT_TRUE(writer) << error.description;

  const p::AudioOutputSettings settings{p::kAudioFormatMPEG4AAC, 48000, 2, 128000};
  ASSERT_TRUE(writer->canApplyOutputSettings(settings));
  auto input = writer->makeInput(settings, "System audio");
  ASSERT_TRUE(input);
  EXPECT_EQ(input->settings(), settings);
  input->setExpectsMediaDataInRealTime(true);
  ASSERT_TRUE(writer->canAddInput(input));
  writer->addInput(input);
  ASSERT_TRUE(writer->startWriting());
  writer->startSession(p::MediaTime::make(0, 1));

  int appended = 0;
  for (int64_t i = 0; i < 100; ++i) {
    const double giveUp = ac::monotonicSeconds() + 2;
    while (!input->isReadyForMoreMediaData() && ac::monotonicSeconds() < giveUp) usleep(1000);
    appended += input->append(silence(i * 1024, 1024));
  }
  EXPECT_EQ(appended, 100);
  input->markAsFinished();
  ac::Semaphore finished;
  writer->finishWriting([&] { finished.signal(); });
  ASSERT_TRUE(finished.wait(10.0));
  EXPECT_EQ(writer->status(), p::WriterStatus::completed);
  EXPECT_FALSE(writer->error().has_value());
  EXPECT_GT(std::filesystem::file_size(path), 1000u);
  std::filesystem::remove(path);
}

TEST(WriterBackend, AFileThatCannotBeCreatedFailsWithThePlatformsError) {
  ac::Error error;
  auto writer = makeAVFWriterFactory()->makeMPEG4Writer("/nonexistent-ac-dir/x.m4a", p::MediaTime::make(3000, 600),
                                                        error);
  if (!writer) {
    EXPECT_FALSE(error.domain.empty());
    return;
  }
  writer->addInput(writer->makeInput({p::kAudioFormatMPEG4AAC, 48000, 2, 128000}, "t"));
  EXPECT_FALSE(writer->startWriting());
  EXPECT_EQ(writer->status(), p::WriterStatus::failed);
  ASSERT_TRUE(writer->error().has_value());
  EXPECT_NE(writer->error()->domain, ac::kErrorDomain);
}

TEST(UnbundledProcess, HasNoIdentifierAndANotificationCentreThatNeverAnswers) {
  EXPECT_FALSE(makeNSWorkspace()->bundleIdentifier().has_value());
  auto center = makeUNNotificationCenter();
  auto answered = std::make_shared<std::atomic<bool>>(false);
  center->getAuthorizationStatus([answered](int) { *answered = true; });
  center->getDelivered([answered](std::vector<p::DeliveredNotification>) { *answered = true; });
  center->removeDelivered({"x"});
  usleep(300000);
  EXPECT_FALSE(*answered);
}

}  // namespace
