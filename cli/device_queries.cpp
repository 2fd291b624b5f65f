#include "cli/device_queries.h"

#include <unicode/coll.h>
#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "capture/output_device.h"
#include "support/error.h"

namespace ac {

using platform::AudioObjectID;
using platform::OSStatus;

std::string deviceName(platform::AudioHardware& hw, AudioObjectID id) {
  std::optional<std::string> name;
  OSStatus st = hw.objectName(id, name);
  if (st != 0 || !name) throw CaptureError(st, "device name lookup failed");
  return *name;
}

std::string defaultOutputDeviceName(platform::AudioHardware& hw) {
  return deviceName(hw, defaultOutputDeviceID(hw));
}

namespace {

// The C and POSIX locales (the default of many Linux sessions) map to
// en_US_POSIX, whose collation is code-point order ("B" before "a"): not an
// order a person would expect, so they fall back to the root collation.
icu::Locale collationLocale() {
  icu::Locale locale = icu::Locale::getDefault();
  if (std::strcmp(locale.getVariant(), "POSIX") == 0) return icu::Locale::getRoot();
  return locale;
}

}  // namespace

void sortDeviceNames(std::vector<std::string>& names) {
  // Case-insensitive, locale-aware: secondary strength ignores case but keeps
  // accents; the stable sort keeps device order among equal names.
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::Collator> coll(icu::Collator::createInstance(collationLocale(), status));
  if (U_FAILURE(status) || !coll) {
    std::stable_sort(names.begin(), names.end());
    return;
  }
  coll->setStrength(icu::Collator::SECONDARY);
  std::stable_sort(names.begin(), names.end(), [&](const std::string& a, const std::string& b) {
    UErrorCode st = U_ZERO_ERROR;
    return coll->compareUTF8(a, b, st) == UCOL_LESS;
  });
}

std::vector<std::string> listOutputDeviceNames(platform::AudioHardware& hw) {
  uint32_t size = 0;
  OSStatus st = hw.deviceListByteSize(size);
  if (st != 0) throw CaptureError(st, "device-list size lookup failed");
  if (size < 4) return {};
  std::vector<AudioObjectID> ids(size / 4, 0);
  st = hw.deviceList(ids);
  if (st != 0) throw CaptureError(st, "device-list lookup failed");

  std::vector<std::string> names;
  for (AudioObjectID id : ids) {
    uint32_t streamBytes = 0;
    if (hw.streamsByteSize(id, platform::Scope::output, streamBytes) != 0 || streamBytes == 0) continue;
    std::optional<std::string> name;
    if (hw.objectName(id, name) != 0 || !name || name->empty()) continue;
    names.push_back(std::move(*name));
  }
  sortDeviceNames(names);
  return names;
}

namespace {

std::string failureLine(const char* prefix, const CaptureError& e) {
  return std::string(prefix) + e.what() + " (status " + std::to_string(e.code()) + ")\n";
}

}  // namespace

DeviceQueryOutcome currentOutputQuery(platform::AudioHardware& hw) {
  try {
    return {defaultOutputDeviceName(hw) + "\n", "", 0};
  } catch (const CaptureError& e) {
    return {"", failureLine("current-output lookup failed: ", e), 1};
  }
}

DeviceQueryOutcome listOutputsQuery(platform::AudioHardware& hw) {
  try {
    std::string out;
    for (const std::string& name : listOutputDeviceNames(hw)) out += name + "\n";
    return {out, "", 0};
  } catch (const CaptureError& e) {
    return {"", failureLine("list-outputs failed: ", e), 1};
  }
}

}  // namespace ac
