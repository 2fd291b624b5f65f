#include "notify/unicode_text.h"

#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include <memory>

namespace ac::notify::text {

bool isWhitespace(char32_t c) { return u_isUWhiteSpace(static_cast<UChar32>(c)); }

bool isNewline(char32_t c) {
  return (c >= 0x0A && c <= 0x0D) || c == 0x85 || c == 0x2028 || c == 0x2029;
}

bool isControl(char32_t c) {
  return (U_GET_GC_MASK(static_cast<UChar32>(c)) & (U_GC_CC_MASK | U_GC_CF_MASK)) != 0;
}

bool isAlphanumeric(char32_t c) {
  return (U_GET_GC_MASK(static_cast<UChar32>(c)) & (U_GC_L_MASK | U_GC_M_MASK | U_GC_N_MASK)) != 0;
}

bool isValidUTF8(std::string_view s) {
  int32_t i = 0;
  const auto length = static_cast<int32_t>(s.size());
  while (i < length) {
    UChar32 c;
    U8_NEXT(reinterpret_cast<const uint8_t*>(s.data()), i, length, c);
    if (c < 0) return false;
  }
  return true;
}

std::u32string scalars(std::string_view utf8) {
  std::u32string out;
  out.reserve(utf8.size());
  int32_t i = 0;
  const auto length = static_cast<int32_t>(utf8.size());
  while (i < length) {
    UChar32 c;
    U8_NEXT(reinterpret_cast<const uint8_t*>(utf8.data()), i, length, c);
    out.push_back(c < 0 ? U'\uFFFD' : static_cast<char32_t>(c));
  }
  return out;
}

std::string utf8(std::u32string_view scalars) {
  std::string out;
  out.reserve(scalars.size());
  for (char32_t c : scalars) {
    uint8_t buf[U8_MAX_LENGTH];
    int32_t n = 0;
    UBool error = false;
    U8_APPEND(buf, n, U8_MAX_LENGTH, static_cast<UChar32>(c), error);
    if (error) {
      n = 0;
      U8_APPEND_UNSAFE(buf, n, 0xFFFD);
    }
    out.append(reinterpret_cast<const char*>(buf), static_cast<std::size_t>(n));
  }
  return out;
}

namespace {

// Calls visit(startIndex, endIndex) in UTF-16 units for each grapheme cluster
// until it returns false; returns the UTF-16 text it walked.
template <class Visit>
icu::UnicodeString walkCharacters(std::string_view utf8Text, Visit visit) {
  icu::UnicodeString s = icu::UnicodeString::fromUTF8(icu::StringPiece(utf8Text.data(), static_cast<int32_t>(utf8Text.size())));
  // Creating an iterator loads break rules; one per thread is reused.
  thread_local std::unique_ptr<icu::BreakIterator> it = [] {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> created(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    return U_SUCCESS(status) ? std::move(created) : nullptr;
  }();
  if (!it) {
    // Without break data fall back to code points, which never undercounts.
    for (int32_t i = 0; i < s.length();) {
      int32_t next = s.moveIndex32(i, 1);
      if (!visit(i, next)) break;
      i = next;
    }
    return s;
  }
  it->setText(s);
  int32_t start = it->first();
  for (int32_t end = it->next(); end != icu::BreakIterator::DONE; start = end, end = it->next()) {
    if (!visit(start, end)) break;
  }
  return s;
}

}  // namespace

std::size_t characterCount(std::string_view utf8Text) {
  std::size_t count = 0;
  walkCharacters(utf8Text, [&](int32_t, int32_t) {
    ++count;
    return true;
  });
  return count;
}

std::string firstCharacters(std::string_view utf8Text, std::size_t count) {
  std::size_t seen = 0;
  int32_t cut = 0;
  icu::UnicodeString s = walkCharacters(utf8Text, [&](int32_t, int32_t end) {
    if (seen == count) return false;
    ++seen;
    cut = end;
    return true;
  });
  std::string out;
  s.tempSubString(0, cut).toUTF8String(out);
  return out;
}

std::string trimmed(std::string_view utf8Text) {
  std::u32string s = scalars(utf8Text);
  std::size_t begin = 0;
  std::size_t end = s.size();
  while (begin < end && isWhitespace(s[begin])) ++begin;
  while (end > begin && isWhitespace(s[end - 1])) --end;
  return utf8(std::u32string_view(s).substr(begin, end - begin));
}

std::vector<std::string> whitespaceSeparatedPieces(std::string_view utf8Text) {
  std::vector<std::string> pieces;
  std::u32string piece;
  for (char32_t c : scalars(utf8Text)) {
    if (!isWhitespace(c)) {
      piece.push_back(c);
    } else if (!piece.empty()) {
      pieces.push_back(utf8(piece));
      piece.clear();
    }
  }
  if (!piece.empty()) pieces.push_back(utf8(piece));
  return pieces;
}

}  // namespace ac::notify::text
