// The armed launch's watch on the bound input, and discarding an unused
// recording.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "recorder_harness.h"

namespace ac::test {
namespace {

class ArmedWatchTest : public RecorderTest {
 protected:
  std::function<void(const std::string&)> recordReasons() {
    return [this](const std::string& reason) { reasons_.push_back(reason); };
  }
  std::vector<std::string> reasons() { return reasons_.get(); }
  sim::Locked<std::vector<std::string>> reasons_;
};

using platform::ListenedProperty;

TEST_F(ArmedWatchTest, FollowingTheDefaultAnyDefaultChangeReleasesEvenOneBeforeTheWatch) {
  make(false, true).setup();
  ASSERT_TRUE(rec->installArmedInputWatch(recordReasons()));
  EXPECT_TRUE(logs.has("armed: default-input listener installed"));
  EXPECT_EQ(rec->armedDeviceStaleReason(), std::nullopt);
  p.hw.setDefaultInput(p.hw.addDevice({"other", std::string("Other"), 0, 0, {1}}));
  ASSERT_TRUE(p.hw.waitForListeners());
  EXPECT_EQ(reasons(), (std::vector<std::string>{"input-device-changed"}));
  rec->removeArmedInputWatch();
  rec->removeArmedInputWatch();  // safe twice
  EXPECT_EQ(p.hw.listenerCount(ListenedProperty::defaultInputDevice), 0u);
  EXPECT_EQ(p.micSim.observerCount(), 0u);

  rec->discardArmed();
  make(false, true).setup();
  p.micSim.addDevice("usb", "USB Mic");
  p.micSim.defaultUID.set("usb");
  ASSERT_TRUE(rec->installArmedInputWatch(recordReasons()));
  EXPECT_TRUE(logs.has("armed: bound input Built-in Mic invalid after setup (input-device-changed)"));
  EXPECT_EQ(reasons(), (std::vector<std::string>{"input-device-changed", "input-device-changed"}));
}

TEST_F(ArmedWatchTest, PinnedWatchesOnlyItsOwnDevice) {
  p.micSim.addDevice("pinned", "Desk Mic");
  make(false, true, "pinned").setup();
  ASSERT_TRUE(rec->installArmedInputWatch(recordReasons()));
  EXPECT_EQ(p.hw.listenerCount(ListenedProperty::defaultInputDevice), 0u);
  p.micSim.defaultUID.set(std::nullopt);  // a pinned recorder does not care
  EXPECT_EQ(rec->armedDeviceStaleReason(), std::nullopt);
  p.micSim.disconnect("builtin");
  EXPECT_TRUE(reasons().empty());
  p.micSim.disconnect("pinned");
  EXPECT_EQ(reasons(), (std::vector<std::string>{"device-disconnected"}));
  EXPECT_EQ(rec->armedDeviceStaleReason(), "device-disconnected");
}

TEST_F(ArmedWatchTest, AListenerThatCannotBeInstalledRefusesToArmBlind) {
  make(false, true).setup();
  p.hw.failNext("AudioObjectAddPropertyListenerBlock", -1);
  EXPECT_FALSE(rec->installArmedInputWatch(recordReasons()));
  EXPECT_TRUE(logs.has("armed: default-input listener NOT installed — releasing rather than arming blind"));
  rec->discardArmed();
  make(true, false).setup();  // nothing to watch without a microphone
  EXPECT_TRUE(rec->installArmedInputWatch(recordReasons()));
}

TEST_F(ArmedWatchTest, DiscardCancelsTheWriterAndRemovesOnlyItsOwnOutput) {
  make(false, true).setup();
  ASSERT_TRUE(rec->installArmedInputWatch(recordReasons()));
  std::ofstream(path) << "header";
  rec->discardArmed();
  EXPECT_EQ(writer()->status.get(), platform::WriterStatus::cancelled);
  EXPECT_TRUE(writer()->released.get());
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_EQ(p.micSim.observerCount(), 0u);
  rec->discardArmed();  // nothing left to remove: silent
  EXPECT_TRUE(logs.matching("armed: could not remove").empty());

  make(false, true).setup();
  std::filesystem::remove(path);
  std::ofstream(path) << "someone else's";  // not the file set-up created
  rec->discardArmed();
  EXPECT_EQ(ScratchDir::contents(path), "someone else's");
}

}  // namespace
}  // namespace ac::test
