// The click envelope every clickable banner carries in its user info, the
// click-token grammar, and their resolution into exactly one target or one
// named refusal. Closed by default: the payload may be stale, forged by
// another process posting into the same notification centre, or written by
// another build, so every form is matched exactly and anything else refused.
//
// Pure functions: they never throw and never log; callers log the refusal's
// raw value and do nothing.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include <nlohmann/json.hpp>

namespace ac::notify {

// The envelope: {"vela_click_v": 1, "vela_click_target": token} plus
// "vela_click_expires_at" (seconds since 1970) on stamped banners. Only
// property-list types, so it survives the platform's archiving of content.
namespace NotifyClickPayload {
inline constexpr const char* versionKey = "vela_click_v";
inline constexpr const char* targetKey = "vela_click_target";
inline constexpr const char* expiresAtKey = "vela_click_expires_at";
inline constexpr int version = 1;

nlohmann::json make(const std::string& token, std::optional<double> expiresAt = std::nullopt);
}  // namespace NotifyClickPayload

enum class NotifyClickFreshness { noStamp, fresh, expired };
std::string_view rawValue(NotifyClickFreshness freshness);

// `expiresAt` is the raw value under the expiry key, nullptr when absent.
// Anything unreadable (a string, infinity, NaN) is expired; `now` equal to
// the stamp is already expired.
NotifyClickFreshness notifyClickFreshness(const nlohmann::json* expiresAt, double now);
NotifyClickFreshness notifyClickFreshness(std::optional<double> expiresAt, double now);

// The cases of NotifyClickTarget, in case order.
struct ClickURL {
  std::string url;
  bool operator==(const ClickURL&) const = default;
};
struct ClickOpenNote {
  std::string marker;
  bool operator==(const ClickOpenNote&) const = default;
};
struct ClickStartRecording {
  std::optional<std::string> templateID;
  bool operator==(const ClickStartRecording&) const = default;
};
struct ClickIgnoreSilence {
  std::string marker;
  bool operator==(const ClickIgnoreSilence&) const = default;
};
// Never produced by a token: only by a silence-warning action button.
struct ClickSnoozeSilence {
  std::string marker;
  int minutes = 0;
  bool operator==(const ClickSnoozeSilence&) const = default;
};
struct ClickRecordings {
  bool operator==(const ClickRecordings&) const = default;
};

using NotifyClickTarget =
    std::variant<ClickURL, ClickOpenNote, ClickStartRecording, ClickIgnoreSilence, ClickSnoozeSilence, ClickRecordings>;

// In case order; the raw values are what the logs print.
enum class NotifyClickRejection {
  noTarget,
  notAbsolutePath,
  malformedAppleNotes,
  malformedNotion,
  unbuildableURL,
  noPayload,
  unsupportedVersion,
  malformedPayload,
  expired,
  malformedSilenceTarget,
  actionOnly,  // a journalled silence warning clicked cold; never from a token
  malformedOpenNoteTarget,
};
std::string_view rawValue(NotifyClickRejection rejection);

using NotifyClickResult = std::variant<NotifyClickTarget, NotifyClickRejection>;

inline const NotifyClickTarget* clickTarget(const NotifyClickResult& r) { return std::get_if<NotifyClickTarget>(&r); }
inline std::optional<NotifyClickRejection> clickRejection(const NotifyClickResult& r) {
  if (auto* rej = std::get_if<NotifyClickRejection>(&r)) return *rej;
  return std::nullopt;
}

// The envelope, checked in order: version key present, version the integer
// 1, target a string, not expired; then the token grammar.
NotifyClickResult resolveNotifyClickTarget(const nlohmann::json& userInfo, double now);

// The token grammar alone (also used for journalled tokens).
NotifyClickResult resolveNotifyClickTarget(std::string_view token);

inline constexpr std::string_view recordingsToken = "vela-app:recordings";
inline constexpr std::string_view recordStartToken = "vela-app:record-start";

// Clicks that open a recording's note in the companion app.
namespace OpenNoteClick {
inline constexpr std::string_view tokenPrefix = "vela-app:open-note:";
std::string token(std::string_view marker);
// A recording marker or its joined-call form; nothing else.
bool isNoteMarker(std::string_view marker);
// "vela://open-note?marker=<marker>" for a note marker; nothing otherwise.
std::optional<std::string> url(std::string_view marker);
}  // namespace OpenNoteClick

}  // namespace ac::notify
