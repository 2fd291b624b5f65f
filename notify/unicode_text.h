// Unicode-aware text helpers for what the notify side shows to the user:
// "characters" are user-perceived characters (grapheme clusters) and the
// character classes are ICU's, so a name in any script is measured and
// cleaned the way the desktop will draw it.
//
// All functions take and return UTF-8; invalid input bytes are repaired to
// U+FFFD. Pure and thread-safe.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace ac::notify::text {

// White_Space, which covers newlines, line and paragraph separators and
// non-breaking and thin spaces.
bool isWhitespace(char32_t c);
// Line terminators: LF, VT, FF, CR, NEL, LINE and PARAGRAPH SEPARATOR.
bool isNewline(char32_t c);
// General categories Cc and Cf (controls and invisible format characters).
bool isControl(char32_t c);
// Letters, marks and digits of every script (categories L*, M*, N*).
bool isAlphanumeric(char32_t c);

bool isValidUTF8(std::string_view s);

// Decodes to scalars (invalid bytes become U+FFFD) and back.
std::u32string scalars(std::string_view utf8);
std::string utf8(std::u32string_view scalars);

// Number of grapheme clusters.
std::size_t characterCount(std::string_view utf8);
// The first `count` grapheme clusters.
std::string firstCharacters(std::string_view utf8, std::size_t count);

// Without leading and trailing whitespace (isWhitespace).
std::string trimmed(std::string_view utf8);

// The non-empty runs between whitespace scalars.
std::vector<std::string> whitespaceSeparatedPieces(std::string_view utf8);

}  // namespace ac::notify::text
