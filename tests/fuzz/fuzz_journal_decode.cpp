// The journal decoder on arbitrary bytes: decode, encode and decode again
// must give the same entries and the same bytes, and the list operations keep
// their bounds on whatever was decoded.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz_check.h"
#include "notify/click_journal.h"

using namespace ac::notify;
namespace J = NotifyClickJournal;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  auto decoded = J::decode(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!decoded) return 0;
  auto encoded = J::encode(*decoded);
  FUZZ_CHECK(encoded.has_value());
  auto again = J::decode(*encoded);
  FUZZ_CHECK(again.has_value() && *again == *decoded);
  FUZZ_CHECK(J::encode(*again) == encoded);

  // Every other identifier counts as still delivered.
  std::vector<std::string> delivered;
  for (std::size_t i = 0; i < decoded->size(); i += 2) delivered.push_back((*decoded)[i].id);
  const double now = size;
  for (const DeliveredIDs& shown : {DeliveredIDs(delivered), DeliveredIDs(std::nullopt)}) {
    auto pruned = J::prune(*decoded, shown, now);
    FUZZ_CHECK(pruned.size() <= std::min(decoded->size(), J::cap));
    auto resolution = J::resolve(*decoded, shown);
    if (resolution.entry) {
      FUZZ_CHECK(resolution.kind == NotifyColdClickResolution::Kind::route && resolution.entry->token);
      FUZZ_CHECK(std::find(decoded->begin(), decoded->end(), *resolution.entry) != decoded->end());
    }
    auto adopted = J::adoptUnknown(*decoded, shown, now);
    FUZZ_CHECK(adopted.size() >= decoded->size() && std::equal(decoded->begin(), decoded->end(), adopted.begin()));
  }
  return 0;
}
