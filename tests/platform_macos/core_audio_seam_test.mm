// The Core Audio side: the core's aggregate description as the dictionary
// the HAL reads. (The property addresses are one table of Apple's own
// constants in core_audio_properties.h: a test could only copy it.)
#import <CoreAudio/CoreAudio.h>
#import <Foundation/Foundation.h>

#include <gtest/gtest.h>

#include "capture/process_tap.h"
#include "platform/macos/cf_convert.h"

namespace {

using namespace ac::platform::macos;

TEST(AggregateDescription, ConvertsToTheDictionaryTheHALReads) {
  NSDictionary* d = toPropertyList(ac::capture::aggregateDescription("agg-uid", "tap-uid", "out-uid"));
  ASSERT_TRUE([d isKindOfClass:[NSDictionary class]]);

  NSSet* expectedKeys = [NSSet setWithArray:@[
    @kAudioAggregateDeviceNameKey, @kAudioAggregateDeviceUIDKey, @kAudioAggregateDeviceMainSubDeviceKey,
    @kAudioAggregateDeviceIsPrivateKey, @kAudioAggregateDeviceIsStackedKey, @kAudioAggregateDeviceTapListKey,
    @kAudioAggregateDeviceSubDeviceListKey
  ]];
  EXPECT_TRUE([[NSSet setWithArray:d.allKeys] isEqualToSet:expectedKeys]);
  EXPECT_TRUE([d[@kAudioAggregateDeviceNameKey] isEqualToString:@"audio-capture system tap"]);
  EXPECT_TRUE([d[@kAudioAggregateDeviceMainSubDeviceKey] isEqualToString:@"out-uid"]);
  EXPECT_EQ(CFGetTypeID((__bridge CFTypeRef)d[@kAudioAggregateDeviceIsPrivateKey]), CFNumberGetTypeID());
  EXPECT_EQ([d[@kAudioAggregateDeviceIsPrivateKey] intValue], 1);
  EXPECT_EQ([d[@kAudioAggregateDeviceIsStackedKey] intValue], 0);

  NSArray* taps = d[@kAudioAggregateDeviceTapListKey];
  ASSERT_EQ(taps.count, 1u);
  EXPECT_TRUE([taps[0][@kAudioSubTapUIDKey] isEqualToString:@"tap-uid"]);
  EXPECT_EQ([taps[0][@kAudioSubTapDriftCompensationKey] intValue], 1);
  NSArray* subdevices = d[@kAudioAggregateDeviceSubDeviceListKey];
  ASSERT_EQ(subdevices.count, 1u);
  EXPECT_TRUE([subdevices[0][@kAudioSubDeviceUIDKey] isEqualToString:@"out-uid"]);
}

TEST(PropertyLists, AJSONRoundTripKeepsEachValuesTypeAndLeavesNullOut) {
  const nlohmann::json in = {{"s", "x"}, {"i", -3}, {"d", 0.5}, {"b", true}, {"a", {1, "two", nullptr}},
                             {"o", {{"n", nullptr}, {"k", 2}}}, {"z", nullptr}};
  const nlohmann::json expected = {{"s", "x"}, {"i", -3}, {"d", 0.5}, {"b", true}, {"a", {1, "two"}}, {"o", {{"k", 2}}}};
  const nlohmann::json out = toJSON(toPropertyList(in));
  EXPECT_EQ(out, expected);
  EXPECT_TRUE(out["i"].is_number_integer());
  EXPECT_TRUE(out["d"].is_number_float());
  EXPECT_TRUE(out["b"].is_boolean());
  EXPECT_TRUE(toPropertyList(nullptr) == nil);
}

}  // namespace
