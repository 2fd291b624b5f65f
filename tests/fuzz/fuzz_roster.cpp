// The template roster parser on arbitrary bytes: every entry it keeps obeys
// the id and name rules, and every menu action it offers parses back and
// resolves to its own template.
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>

#include "fuzz_check.h"
#include "notify/meeting_banner.h"
#include "notify/unicode_text.h"

using namespace ac::notify;
namespace M = MeetingBanner;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  auto roster = M::parseRoster(std::string_view(reinterpret_cast<const char*>(data), size));
  std::set<std::string> ids;
  for (const auto& entry : roster) {
    FUZZ_CHECK(M::isValidTemplateID(entry.id));
    FUZZ_CHECK(ids.insert(entry.id).second);
    FUZZ_CHECK(!entry.name.empty() && text::characterCount(entry.name) <= M::maxNameCharacters);
  }
  auto items = M::menu(roster);
  FUZZ_CHECK(!items.empty() && items.size() <= 1 + M::templateSlots);
  for (std::size_t i = 0; i < items.size(); ++i) {
    auto pick = M::parse(items[i].identifier);
    FUZZ_CHECK(pick.has_value());
    auto resolution = M::resolve(*pick, roster);
    FUZZ_CHECK(resolution.kind == M::Resolution::Kind::start);
    FUZZ_CHECK(resolution.templateID == (i == 0 ? std::nullopt : std::optional<std::string>(roster[i - 1].id)));
    for (char32_t c : text::scalars(items[i].title)) FUZZ_CHECK(!text::isControl(c) && !text::isNewline(c));
  }
  return 0;
}
