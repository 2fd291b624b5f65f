#include "support/text.h"

#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>

namespace ac {

std::string repairedUTF8(std::string_view bytes) {
  std::string out;
  out.reserve(bytes.size());
  const auto* s = reinterpret_cast<const uint8_t*>(bytes.data());
  const auto length = static_cast<int32_t>(bytes.size());
  for (int32_t i = 0; i < length;) {
    const int32_t start = i;
    UChar32 c;
    U8_NEXT(s, i, length, c);
    if (c < 0) {
      out += "\xEF\xBF\xBD";
    } else {
      out.append(bytes.data() + start, static_cast<std::size_t>(i - start));
    }
  }
  return out;
}

std::vector<std::string_view> splitKeepingEmpty(std::string_view s, char separator) {
  std::vector<std::string_view> pieces;
  std::size_t start = 0;
  for (std::size_t end; (end = s.find(separator, start)) != std::string_view::npos; start = end + 1) {
    pieces.push_back(s.substr(start, end - start));
  }
  pieces.push_back(s.substr(start));
  return pieces;
}

bool isLowercaseHex(std::string_view text, std::size_t digits) {
  return text.size() == digits &&
         std::all_of(text.begin(), text.end(), [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

}  // namespace ac
