#include "notify/note_links.h"

#include <uuid/uuid.h>

#include "notify/unicode_text.h"
#include "notify/url_components.h"
#include "support/text.h"

namespace ac::notify {

std::optional<std::string> percentEncodeNotePath(std::string_view path) {
  if (!text::isValidUTF8(path)) return std::nullopt;
  // Letters, marks and digits of every script stand as they are; every byte
  // of anything else but "-._~" is escaped.
  std::string out;
  out.reserve(path.size() * 3);
  for (char32_t c : text::scalars(path)) {
    std::string bytes = text::utf8(std::u32string_view(&c, 1));
    out += c >= 0x80 && text::isAlphanumeric(c) ? bytes : percentEncodeBytes(bytes);
  }
  return out;
}

std::optional<std::string> notePathNotifyURL(std::string_view path) {
  auto encoded = percentEncodeNotePath(path);
  if (!encoded) return std::nullopt;
  return std::string(notePathURLPrefix) + *encoded;
}

bool appleNotesUUIDShaped(std::string_view text) {
  if (text.size() != 36) return false;
  std::string terminated(text);
  uuid_t parsed;
  return uuid_parse(terminated.c_str(), parsed) == 0;
}

std::optional<std::string> appleNotesEmbeddedStoreUUID(std::string_view noteId) {
  if (!noteId.starts_with(appleNotesNoteIdPrefix)) return std::nullopt;
  std::string_view rest = noteId.substr(appleNotesNoteIdPrefix.size());
  return std::string(rest.substr(0, rest.find('/')));
}

bool appleNotesNoteIdShaped(std::string_view noteId) {
  if (!noteId.starts_with(appleNotesNoteIdPrefix)) return false;
  std::string_view rest = noteId.substr(appleNotesNoteIdPrefix.size());
  std::size_t first = rest.find('/');
  if (first == std::string_view::npos) return false;
  std::size_t second = rest.find('/', first + 1);
  if (second == std::string_view::npos) return false;
  std::string_view store = rest.substr(0, first);
  std::string_view entity = rest.substr(first + 1, second - first - 1);
  std::string_view key = rest.substr(second + 1);
  return appleNotesUUIDShaped(store) && entity == appleNotesNoteEntity && !key.empty() &&
         key.find('/') == std::string_view::npos;
}

std::optional<std::string> appleNotesNotifyURL(std::string_view token) {
  auto url = parseURLComponents(token);
  if (!url || url->scheme != appleNotesScheme || url->host != appleNotesHost) return std::nullopt;
  if (url->userInfo || url->port || url->fragment) return std::nullopt;
  if (!url->path.empty() && url->path != "/") return std::nullopt;
  if (!url->query) return std::nullopt;
  auto items = parseQueryItems(*url->query);
  if (!items || items->size() != 2) return std::nullopt;

  std::optional<std::string> noteId;
  std::optional<std::string> storeUUID;
  for (const auto& item : *items) {
    std::optional<std::string>* slot = item.name == "note_id" ? &noteId : item.name == "store_uuid" ? &storeUUID : nullptr;
    if (!slot || slot->has_value() || !item.value) return std::nullopt;
    *slot = item.value;
  }
  if (!noteId || !storeUUID) return std::nullopt;
  if (!appleNotesNoteIdShaped(*noteId) || !appleNotesUUIDShaped(*storeUUID)) return std::nullopt;
  if (appleNotesEmbeddedStoreUUID(*noteId) != *storeUUID) return std::nullopt;

  URLComponents link;
  link.scheme = appleNotesScheme;
  link.host = appleNotesHost;
  link.query = "note_id=" + percentEncodeQueryComponent(*noteId) + "&store_uuid=" + percentEncodeQueryComponent(*storeUUID);
  return composeURL(link);
}

std::optional<std::string> notionNotifyURL(std::string_view token) {
  if (!token.starts_with(notionTokenPrefix)) return std::nullopt;
  std::string_view rest = token.substr(notionTokenPrefix.size());
  std::size_t hash = rest.find('#');
  std::string_view page = rest.substr(0, hash);
  std::optional<std::string_view> block;
  if (hash != std::string_view::npos) block = rest.substr(hash + 1);
  if (!isLowercaseHex(page, 32) || (block && !isLowercaseHex(*block, 32))) return std::nullopt;

  std::string canonical = std::string(notionTokenPrefix) + std::string(page);
  if (block) canonical += "#" + std::string(*block);

  // Re-parse the canonical form and demand it reads back as exactly that
  // page on exactly that host.
  auto url = parseURLComponents(canonical);
  if (!url || url->scheme != "https" || url->host != notionWebHost) return std::nullopt;
  if (url->userInfo || url->port || url->query) return std::nullopt;
  if (url->path != "/" + std::string(page)) return std::nullopt;
  if (url->fragment != (block ? std::optional<std::string>(std::string(*block)) : std::nullopt)) return std::nullopt;
  if (composeURL(*url) != canonical || canonical != token) return std::nullopt;
  return canonical;
}

}  // namespace ac::notify
