// Meeting prompts: a banner that offers to start a recording, with up to
// three buttons for the user's recording templates (read from the roster
// file the companion app writes), and a notification category of its own per
// prompt. A template button names its template by id and by a digest of the
// template as offered; the pick is honoured only while that exact template
// is still on the roster.
//
// Pure functions except roster(), which reads the file (bounded), and
// categoryID(), which mints a UUID.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/notification_center.h"

namespace ac::notify::MeetingBanner {

inline constexpr std::size_t maxRosterBytes = 2097152;
inline constexpr std::size_t templateSlots = 3;
inline constexpr std::size_t digestLength = 32;
inline constexpr std::size_t maxTemplateIDLength = 64;
inline constexpr std::size_t maxNameCharacters = 64;
inline constexpr std::string_view actionPrefix = "vela.act";
inline constexpr std::string_view startActionID = "vela.act:start";
inline constexpr std::string_view startActionTitle = "Start recording";
// A meeting outlives its prompt otherwise.
inline constexpr double ttl = 7200;

inline constexpr std::string_view categoryPrefix = "vela.meeting.";
inline constexpr std::size_t categoryRetentionCap = 8;
// A category registered this recently may not be on screen yet.
inline constexpr double categoryDeliveryGrace = 60;

struct RosterEntry {
  std::string id;
  std::string name;
  bool operator==(const RosterEntry&) const = default;
};

struct MenuItem {
  std::string identifier;
  std::string title;
  bool operator==(const MenuItem&) const = default;
};

struct TemplatePick {
  std::string id;
  std::string digest;
  bool operator==(const TemplatePick&) const = default;
};
struct PlainPick {
  bool operator==(const PlainPick&) const = default;
};
using Pick = std::variant<TemplatePick, PlainPick>;

struct Resolution {
  enum class Kind { start, refuse };
  Kind kind = Kind::refuse;
  std::optional<std::string> templateID;

  static Resolution start(std::optional<std::string> id) { return {Kind::start, std::move(id)}; }
  static Resolution refuse() { return {Kind::refuse, std::nullopt}; }
  bool operator==(const Resolution&) const = default;
};

// $HOME/.config/vela/template-shortcuts.json
std::string rosterPath();
// The roster in file order; empty for anything unreadable, another version
// or a duplicated id.
std::vector<RosterEntry> roster(const std::string& path = rosterPath());
std::vector<RosterEntry> parseRoster(std::string_view json);

// "Start recording" first, then at most templateSlots templates.
std::vector<MenuItem> menu(const std::vector<RosterEntry>& roster);

// First 16 bytes of SHA-256(id + "\n" + name), lowercase hex.
std::string digest(std::string_view id, std::string_view name);
// "vela.act:tpl:" + digest + ":" + id
std::string templateActionID(std::string_view id, std::string_view digest);
// 1-64 characters of ASCII letters, digits, ".", "-", "_".
bool isValidTemplateID(std::string_view id);

// A meeting action identifier; nothing for anything else (the platform's
// default and dismiss identifiers included).
std::optional<Pick> parse(std::string_view actionIdentifier);
// By id, never by position; refused unless exactly one entry has the id and
// its digest still matches.
Resolution resolve(const Pick& pick, const std::vector<RosterEntry>& roster);

// Without control and newline scalars, trimmed, at most 64 characters: a
// name can never forge a second menu row.
std::string displaySafeMenuTitle(std::string_view name);

// "vela.meeting.<whole seconds, clamped to 0...9999999999>.<UUID>"; a
// posting time that is not finite is stamped 0.
std::string categoryID(double now);
bool isOurCategory(std::string_view identifier);
// The stamp of one of our identifiers; nothing when it does not read as a
// finite number or the identifier is not ours.
std::optional<double> categoryPostedAt(std::string_view identifier);

// The categories to register: the new one, then everything not ours
// (ascending), then ours still delivered or registered under
// categoryDeliveryGrace ago (ascending, at most cap - 1). `stillDelivered`
// are the categories of the delivered banners; absent when the centre did
// not answer, which keeps all of ours up to the cap.
std::vector<std::string> categoriesToKeep(const std::vector<std::string>& existing,
                                          const std::optional<std::vector<std::string>>& stillDelivered,
                                          const std::string& newID, double now,
                                          std::size_t cap = categoryRetentionCap);

// One action per menu item, each needing the device unlocked and none
// bringing the app forward, no custom dismiss (a dismissed prompt must never
// arrive as a response). Nothing for an empty menu.
std::optional<platform::NotificationCategory> makeCategory(const std::string& identifier,
                                                           const std::vector<MenuItem>& items);

// Whether a delivered banner is a meeting prompt to take back: our category,
// or no category and the record-start token; with a bound, only if posted
// (category stamp, else delivery time) strictly before it.
bool shouldWithdraw(std::string_view category, const std::optional<std::string>& token, double deliveredAt,
                    std::optional<double> before);

}  // namespace ac::notify::MeetingBanner
