// Byte-string helpers shared by the core and the backends. Pure and
// thread-safe.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace ac {

// The bytes as valid UTF-8: each ill-formed sequence (its maximal subpart,
// as Unicode recommends) becomes one U+FFFD; everything valid, NUL included,
// is kept. For text from outside (the command line, a pipe, a script's
// output) before it is shown or handed to a library that refuses invalid
// UTF-8 (libdbus aborts the process). Inputs are below 2 GiB.
std::string repairedUTF8(std::string_view bytes);

// The pieces between separators, empty ones kept: "a::b" has three, "" one.
// The views point into s.
std::vector<std::string_view> splitKeepingEmpty(std::string_view s, char separator);

// Exactly `digits` characters, each 0-9 or a-f.
bool isLowercaseHex(std::string_view text, std::size_t digits);

}  // namespace ac
