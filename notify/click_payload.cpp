#include "notify/click_payload.h"

#include <cmath>

#include "notify/note_links.h"
#include "notify/recording_marker.h"
#include "notify/silence_warning.h"
#include "notify/url_components.h"

namespace ac::notify {

nlohmann::json NotifyClickPayload::make(const std::string& token, std::optional<double> expiresAt) {
  nlohmann::json payload = {{versionKey, version}, {targetKey, token}};
  if (expiresAt) payload[expiresAtKey] = *expiresAt;
  return payload;
}

std::string_view rawValue(NotifyClickFreshness freshness) {
  switch (freshness) {
    case NotifyClickFreshness::noStamp: return "no-stamp";
    case NotifyClickFreshness::fresh: return "fresh";
    case NotifyClickFreshness::expired: return "expired";
  }
  return "expired";
}

NotifyClickFreshness notifyClickFreshness(std::optional<double> expiresAt, double now) {
  if (!expiresAt) return NotifyClickFreshness::noStamp;
  // NaN compares false and so lands on expired, as an unreadable stamp must.
  if (!std::isfinite(*expiresAt)) return NotifyClickFreshness::expired;
  return now < *expiresAt ? NotifyClickFreshness::fresh : NotifyClickFreshness::expired;
}

NotifyClickFreshness notifyClickFreshness(const nlohmann::json* expiresAt, double now) {
  if (!expiresAt) return NotifyClickFreshness::noStamp;
  if (!expiresAt->is_number()) return NotifyClickFreshness::expired;
  return notifyClickFreshness(expiresAt->get<double>(), now);
}

std::string_view rawValue(NotifyClickRejection rejection) {
  switch (rejection) {
    case NotifyClickRejection::noTarget: return "no-target";
    case NotifyClickRejection::notAbsolutePath: return "not-an-absolute-path";
    case NotifyClickRejection::malformedAppleNotes: return "malformed-apple-notes-target";
    case NotifyClickRejection::malformedNotion: return "malformed-notion-target";
    case NotifyClickRejection::unbuildableURL: return "unbuildable-url";
    case NotifyClickRejection::noPayload: return "no-vela-payload";
    case NotifyClickRejection::unsupportedVersion: return "unsupported-payload-version";
    case NotifyClickRejection::malformedPayload: return "malformed-payload";
    case NotifyClickRejection::expired: return "expired";
    case NotifyClickRejection::malformedSilenceTarget: return "malformed-ignore-silence-target";
    case NotifyClickRejection::actionOnly: return "action-only-target";
    case NotifyClickRejection::malformedOpenNoteTarget: return "malformed-open-note-target";
  }
  return "no-target";
}

NotifyClickResult resolveNotifyClickTarget(const nlohmann::json& userInfo, double now) {
  if (!userInfo.is_object()) return NotifyClickRejection::noPayload;
  auto version = userInfo.find(NotifyClickPayload::versionKey);
  if (version == userInfo.end()) return NotifyClickRejection::noPayload;
  if (!version->is_number_integer() || version->get<int64_t>() != NotifyClickPayload::version) {
    return NotifyClickRejection::unsupportedVersion;
  }
  auto target = userInfo.find(NotifyClickPayload::targetKey);
  if (target == userInfo.end() || !target->is_string()) return NotifyClickRejection::malformedPayload;
  auto expiresAt = userInfo.find(NotifyClickPayload::expiresAtKey);
  const nlohmann::json* stamp = expiresAt == userInfo.end() ? nullptr : &*expiresAt;
  if (notifyClickFreshness(stamp, now) == NotifyClickFreshness::expired) return NotifyClickRejection::expired;
  return resolveNotifyClickTarget(target->get_ref<const std::string&>());
}

NotifyClickResult resolveNotifyClickTarget(std::string_view token) {
  if (token.empty()) return NotifyClickRejection::noTarget;
  if (token == recordingsToken) return ClickRecordings{};
  if (token == recordStartToken) return ClickStartRecording{};
  if (token.starts_with(SilenceWarningBanner::tokenPrefix)) {
    std::string_view marker = token.substr(SilenceWarningBanner::tokenPrefix.size());
    if (!isRecordingMarker(marker)) return NotifyClickRejection::malformedSilenceTarget;
    return ClickIgnoreSilence{std::string(marker)};
  }
  if (token.starts_with(OpenNoteClick::tokenPrefix)) {
    std::string_view marker = token.substr(OpenNoteClick::tokenPrefix.size());
    if (!OpenNoteClick::isNoteMarker(marker)) return NotifyClickRejection::malformedOpenNoteTarget;
    return ClickOpenNote{std::string(marker)};
  }
  if (token.starts_with('/')) {
    auto url = notePathNotifyURL(token);
    if (!url) return NotifyClickRejection::unbuildableURL;
    return ClickURL{*url};
  }
  if (token.starts_with(appleNotesTokenPrefix)) {
    auto url = appleNotesNotifyURL(token);
    if (!url) return NotifyClickRejection::malformedAppleNotes;
    return ClickURL{*url};
  }
  if (token.starts_with(notionTokenPrefix)) {
    auto url = notionNotifyURL(token);
    if (!url) return NotifyClickRejection::malformedNotion;
    return ClickURL{*url};
  }
  return NotifyClickRejection::notAbsolutePath;
}

std::string OpenNoteClick::token(std::string_view marker) { return std::string(tokenPrefix) + std::string(marker); }

bool OpenNoteClick::isNoteMarker(std::string_view marker) {
  return isRecordingMarker(marker) || isJoinedRecordingMarker(marker);
}

std::optional<std::string> OpenNoteClick::url(std::string_view marker) {
  if (!isNoteMarker(marker)) return std::nullopt;
  // A note marker is ASCII letters, digits and "_", all unreserved, so the
  // query value needs no escaping; encoding anyway keeps the link safe should
  // the marker grammar ever widen.
  return "vela://open-note?marker=" + percentEncodeQueryComponent(marker);
}

}  // namespace ac::notify
