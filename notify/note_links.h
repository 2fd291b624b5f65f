// The links a click may open: an Obsidian link built from an absolute note
// path, an Apple Notes note and a Notion page. Each is matched exactly and the
// URL handed to the opener is rebuilt from validated parts, never passed
// through, so a forged payload cannot reach a different app, host or note.
// Pure functions; none of them logs.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ac::notify {

inline constexpr std::string_view notePathURLPrefix = "obsidian://open?path=";

inline constexpr std::string_view appleNotesScheme = "vela-applenotes";
inline constexpr std::string_view appleNotesTokenPrefix = "vela-applenotes://";
inline constexpr std::string_view appleNotesHost = "show";
inline constexpr std::string_view appleNotesNoteIdPrefix = "x-coredata://";
inline constexpr std::string_view appleNotesNoteEntity = "ICNote";

inline constexpr std::string_view notionWebHost = "www.notion.so";
inline constexpr std::string_view notionTokenPrefix = "https://www.notion.so/";

// Percent-encodes every byte of the path except letters, marks and digits of
// any script and "-._~" (so "/" becomes %2F). Nothing for invalid UTF-8.
std::optional<std::string> percentEncodeNotePath(std::string_view path);
// "obsidian://open?path=" + the encoded path; nothing when it cannot be built.
std::optional<std::string> notePathNotifyURL(std::string_view path);

// "vela-applenotes://show?note_id=<id>&store_uuid=<uuid>" exactly (items in
// either order, nothing else), the note id naming the same store; rebuilt as
// note_id then store_uuid. Nothing for anything else.
std::optional<std::string> appleNotesNotifyURL(std::string_view token);
// "x-coredata://" + UUID + "/ICNote/" + a non-empty key.
bool appleNotesNoteIdShaped(std::string_view noteId);
// The 8-4-4-4-12 hexadecimal form (either case).
bool appleNotesUUIDShaped(std::string_view text);
// The first field after "x-coredata://"; nothing without that prefix.
std::optional<std::string> appleNotesEmbeddedStoreUUID(std::string_view noteId);

// "https://www.notion.so/" + 32 lowercase hex digits, optionally "#" + 32
// more for a block; returned only when it is already in that canonical form.
std::optional<std::string> notionNotifyURL(std::string_view token);

}  // namespace ac::notify
