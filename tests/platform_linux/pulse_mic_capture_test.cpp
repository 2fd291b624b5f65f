// The PulseAudio microphone seam against a live server, and its time line
// against the system tap's.
#include <gtest/gtest.h>

#include <mutex>

#include "platform/linux/pulse_audio_hardware.h"
#include "platform/linux/pulse_connection.h"
#include "platform/linux/pulse_mic_capture.h"
#include "platform_linux/pulse_test_server.h"
#include "support/dispatch.h"

namespace ac::platform::linux_backend {
namespace {

using ac::testing::eventually;
using ac::testing::pactl;

// First frame whose sample reaches half scale, as a host time in ns.
std::optional<int64_t> onsetOf(const float* samples, size_t frames, size_t channels, int64_t firstFrameNs,
                               int rate) {
  for (size_t i = 0; i < frames; ++i)
    if (std::fabs(samples[i * channels]) > 0.5f) return firstFrameNs + int64_t(i) * 1'000'000'000 / rate;
  return std::nullopt;
}

// What a session's handler saw.
struct MicSink {
  std::mutex mutex;
  std::vector<SampleBuffer> buffers;
  std::atomic<bool> offQueue{false};
  std::atomic<int> count{0};

  SampleBufferHandler handler(SerialQueue& queue) {
    return [this, &queue](const SampleBuffer& sb) {
      if (!queue.isCurrent()) offQueue = true;
      std::lock_guard<std::mutex> g(mutex);
      buffers.push_back(sb);
      ++count;
    };
  }
  bool heardTone() {
    std::lock_guard<std::mutex> g(mutex);
    return std::any_of(buffers.begin(), buffers.end(), [](const SampleBuffer& b) {
      return ac::testing::peak(reinterpret_cast<const float*>(b.buffers[0].data()), b.buffers[0].size() / 4) > 0.5f;
    });
  }
};

class PulseMicCaptureTest : public ac::testing::PulseServerTest {
 protected:
  std::shared_ptr<CaptureSession> runningSession(const std::string& source, MicSink& sink) {
    auto session = mic.makeSession();
    Error error;
    auto input = mic.makeDeviceInput(mic.deviceWithUniqueID(source), error);
    EXPECT_TRUE(input) << error.description;
    auto output = mic.makeAudioDataOutput();
    output->setAudioSettings(CaptureAudioSettings{});
    output->setSampleBufferHandler(sink.handler(queue), &queue);
    EXPECT_TRUE(session->canAddInput(input));
    session->addInput(input);
    EXPECT_TRUE(session->canAddOutput(output));
    session->addOutput(output);
    session->startRunning();
    EXPECT_TRUE(session->isRunning());
    inputs_[session.get()] = input;
    return session;
  }

  PulseMicCapture mic{PulseConnection::shared()};
  SerialQueue queue{"c1.mic"};
  std::map<CaptureSession*, std::shared_ptr<CaptureDeviceInput>> inputs_;
};

TEST_F(PulseMicCaptureTest, DevicesAreTheInputSourcesAndTheDefaultIsTheServers) {
  std::string out = uniqueName("out"), m = uniqueName("mic");
  addSink(out, "C1-Out");
  addMicOn(out, m, "C1-Mic");

  auto device = mic.deviceWithUniqueID(m);
  ASSERT_TRUE(device);
  EXPECT_EQ(device->uniqueID(), m);
  EXPECT_EQ(device->localizedName(), "C1-Mic");
  EXPECT_TRUE(device->isConnected());
  auto format = device->activeFormat();
  ASSERT_TRUE(format);
  EXPECT_EQ(format->asbd.formatID, kAudioFormatLinearPCM);
  EXPECT_EQ(format->asbd.sampleRate, 48000);
  EXPECT_EQ(format->asbd.channelsPerFrame, 2u);
  EXPECT_FALSE(mic.deviceWithUniqueID(out + ".monitor"));

  pactl("set-default-source " + m);
  auto def = mic.defaultAudioDevice();
  ASSERT_TRUE(def);
  EXPECT_EQ(def->uniqueID(), m);
  pactl("set-default-source " + out + ".monitor");
  EXPECT_FALSE(mic.defaultAudioDevice());
  EXPECT_EQ(mic.authorizationStatus(), MicAuthorization::authorized);
}

TEST_F(PulseMicCaptureTest, SessionDeliversTheSourcesChannelsAt48kOnTheQueueWithSteadyTimes) {
  std::string out = uniqueName("out"), m = uniqueName("mic");
  addSink(out, "C1-Out");
  addMicOn(out, m, "C1-Mic");
  MicSink sink;
  auto session = runningSession(m, sink);
  ac::testing::TonePlayer player(out, ac::testing::leadThenTone(0.05, 2.0));
  ASSERT_TRUE(eventually([&] { return sink.heardTone(); }));
  session->stopRunning();
  EXPECT_FALSE(session->isRunning());
  queue.sync([] {});
  int atStop = sink.count;
  usleep(100000);
  queue.sync([] {});
  EXPECT_EQ(sink.count, atStop);
  EXPECT_FALSE(sink.offQueue);

  std::lock_guard<std::mutex> g(sink.mutex);
  ASSERT_GT(sink.buffers.size(), 5u);
  // Mono asked, the source's two channels delivered: the core mixes down.
  const AudioFormatDescription expected{floatPCMFormat(48000, 2), 0, 0};
  double worstStep = 0;
  for (size_t i = 0; i < sink.buffers.size(); ++i) {
    const SampleBuffer& b = sink.buffers[i];
    EXPECT_TRUE(b.format == expected);
    ASSERT_EQ(b.timing.size(), 1u);
    EXPECT_EQ(b.timing[0].duration, MediaTime::make(1, 48000));
    EXPECT_EQ(b.timing[0].presentationTime.timescale, 1'000'000'000);
    ASSERT_EQ(b.buffers.size(), 1u);
    EXPECT_EQ(b.bufferChannels, std::vector<uint32_t>{2});
    EXPECT_EQ(b.numSamples, int64_t(b.buffers[0].size() / 8));
    if (i == 0) continue;
    const SampleBuffer& p = sink.buffers[i - 1];
    double step = double(b.presentationTime().value - p.presentationTime().value);
    worstStep = std::max(worstStep, std::fabs(step - p.numSamples * 1e9 / 48000));
  }
  EXPECT_LT(worstStep, 1e6);
}

// Both tracks record the same sink monitor here, so the same sound must get
// the same host time. (A remap source as the microphone would add its own
// buffering, which it does not report, to the comparison.)
TEST_F(PulseMicCaptureTest, MicAndSystemTapStampTheSameSoundAtTheSameHostTime) {
  std::string out = uniqueName("out");
  addSink(out, "C1-Out");
  pactl("set-default-sink " + out);

  PulseAudioHardware hw(PulseConnection::shared());
  AudioObjectID tap = 0, agg = 0;
  ASSERT_EQ(hw.createProcessTap(TapDescription{}, tap), 0);
  std::optional<std::string> tapUID;
  ASSERT_EQ(hw.tapUID(tap, tapUID), 0);
  ASSERT_EQ(hw.createAggregateDevice({{"master", out}, {"uid", "agg-" + out}, {"taps", {{{"uid", *tapUID}}}}}, agg), 0);
  std::atomic<int64_t> systemOnset{0};
  IOProcID proc = 0;
  ASSERT_EQ(hw.createIOProc(agg, "audio-capture.ioproc",
                            [&](const AudioBufferList* list, const AudioTimeStamp* t) {
                              auto onset = onsetOf(static_cast<const float*>(list->buffers[0].data),
                                                   list->buffers[0].dataByteSize / 8, 2, int64_t(t->hostTime), 48000);
                              int64_t none = 0;
                              if (onset) systemOnset.compare_exchange_strong(none, *onset);
                            },
                            proc),
            0);
  ASSERT_EQ(hw.startDevice(agg, proc), 0);
  MicSink sink;
  auto session = mic.makeSession();
  SourceInfo monitor{out + ".monitor", "monitor as microphone", {PA_SAMPLE_FLOAT32LE, 48000, 2}, true};
  auto input = std::make_shared<PulseCaptureDeviceInput>(
      std::make_shared<PulseCaptureDevice>(PulseConnection::shared(), monitor));
  auto output = mic.makeAudioDataOutput();
  output->setSampleBufferHandler(sink.handler(queue), &queue);
  session->addInput(input);
  session->addOutput(output);
  session->startRunning();
  ASSERT_TRUE(session->isRunning());
  usleep(100000);
  {
    ac::testing::TonePlayer player(out, ac::testing::leadThenTone(0.1, 0.5));
    ASSERT_TRUE(eventually([&] { return systemOnset != 0 && sink.heardTone(); }));
  }
  hw.stopDevice(agg, proc);
  session->stopRunning();
  queue.sync([] {});

  std::optional<int64_t> micOnset;
  std::lock_guard<std::mutex> g(sink.mutex);
  for (const auto& b : sink.buffers) {
    micOnset = onsetOf(reinterpret_cast<const float*>(b.buffers[0].data()), size_t(b.numSamples), b.bufferChannels[0],
                       b.presentationTime().value, 48000);
    if (micOnset) break;
  }
  ASSERT_TRUE(micOnset);
  EXPECT_LT(std::llabs(*micOnset - systemOnset), 1'000'000) << "mic minus system onset, ns";
  hw.destroyIOProc(agg, proc);
  hw.destroyAggregateDevice(agg);
  hw.destroyProcessTap(tap);
}

TEST_F(PulseMicCaptureTest, SwappingTheInputMovesTheStreamToTheNewSource) {
  std::string a = uniqueName("a"), b = uniqueName("b"), micA = uniqueName("mic"), micB = uniqueName("mic");
  addSink(a, "C1-A");
  addSink(b, "C1-B");
  addMicOn(a, micA, "C1-Mic-A");
  addMicOn(b, micB, "C1-Mic-B");
  MicSink sink;
  auto session = runningSession(micA, sink);
  ac::testing::TonePlayer player(b, ac::testing::leadThenTone(0, 3.0));
  usleep(300000);
  EXPECT_FALSE(sink.heardTone()) << "the tone plays on the other source";

  Error error;
  auto newInput = mic.makeDeviceInput(mic.deviceWithUniqueID(micB), error);
  ASSERT_TRUE(newInput);
  session->beginConfiguration();
  session->removeInput(inputs_[session.get()]);
  ASSERT_TRUE(session->canAddInput(newInput));
  session->addInput(newInput);
  session->commitConfiguration();
  EXPECT_TRUE(session->isRunning());
  EXPECT_TRUE(eventually([&] { return sink.heardTone(); }));
  session->stopRunning();
}

TEST_F(PulseMicCaptureTest, RemovedSourceFiresTheDisconnectObserverAndStopsTheSession) {
  std::string out = uniqueName("out"), m = uniqueName("mic");
  addSink(out, "C1-Out");
  std::string module = addMicOn(out, m, "C1-Mic");
  MicSink sink;
  auto session = runningSession(m, sink);
  auto device = mic.deviceWithUniqueID(m);

  std::mutex mutex;
  std::vector<std::string> gone;
  std::vector<Error> errors;
  ObserverToken disconnect = mic.observeDeviceDisconnected(&queue, [&](std::shared_ptr<CaptureDevice> d) {
    std::lock_guard<std::mutex> g(mutex);
    gone.push_back(d ? d->uniqueID() : "<null>");
  });
  ObserverToken runtime = mic.observeRuntimeError(session, &queue, [&](std::optional<Error> e) {
    std::lock_guard<std::mutex> g(mutex);
    errors.push_back(e.value_or(Error{"none", 0, ""}));
  });
  ASSERT_NE(disconnect, 0u);
  unloadModule(module);
  EXPECT_TRUE(eventually([&] {
    std::lock_guard<std::mutex> g(mutex);
    return !gone.empty() && !errors.empty();
  }));
  {
    std::lock_guard<std::mutex> g(mutex);
    EXPECT_EQ(gone, std::vector<std::string>{m});
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].domain, kMicStopDomain);
    EXPECT_EQ(errors[0].code, int64_t(MicStopKind::transient));
    EXPECT_FALSE(errors[0].description.empty());
  }
  EXPECT_FALSE(session->isRunning());
  EXPECT_FALSE(device->isConnected());
  Error error;
  EXPECT_FALSE(mic.makeDeviceInput(device, error));
  EXPECT_EQ(error.code, -11814);
  // Restarting on the vanished source fails quietly: no second runtime error.
  session->startRunning();
  EXPECT_FALSE(session->isRunning());
  mic.removeObserver(disconnect);
  mic.removeObserver(runtime);
  queue.sync([] {});
  std::lock_guard<std::mutex> g(mutex);
  EXPECT_EQ(errors.size(), 1u);
}

}  // namespace
}  // namespace ac::platform::linux_backend
