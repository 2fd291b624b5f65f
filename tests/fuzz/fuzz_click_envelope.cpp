// The click envelope from arbitrary JSON: never throws, and whatever it
// accepts is exactly what the token grammar makes of the envelope's target.
#include <cstddef>
#include <cstdint>
#include <string>

#include <nlohmann/json.hpp>

#include "fuzz_check.h"
#include "notify/click_payload.h"

using namespace ac::notify;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  nlohmann::json userInfo = nlohmann::json::parse(data, data + size, nullptr, /*allow_exceptions=*/false);
  if (userInfo.is_discarded()) return 0;
  const double now = 1000;
  NotifyClickResult result = resolveNotifyClickTarget(userInfo, now);
  if (const NotifyClickTarget* target = clickTarget(result)) {
    FUZZ_CHECK(userInfo.is_object());
    FUZZ_CHECK(userInfo.at(NotifyClickPayload::versionKey) == 1);
    const auto& token = userInfo.at(NotifyClickPayload::targetKey).get_ref<const std::string&>();
    FUZZ_CHECK(resolveNotifyClickTarget(token) == result);
    auto stamp = userInfo.find(NotifyClickPayload::expiresAtKey);
    FUZZ_CHECK(stamp == userInfo.end() || (stamp->is_number() && stamp->get<double>() > now));
    // Re-wrapping the accepted target in a fresh envelope resolves the same.
    FUZZ_CHECK(resolveNotifyClickTarget(NotifyClickPayload::make(token), now) == result);
    (void)target;
  }
  return 0;
}
