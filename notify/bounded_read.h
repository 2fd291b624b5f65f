// Reading files that other programs write (the template roster, a script's
// captured output, the recording state file) without ever reading more than
// a fixed number of bytes, however large the file has grown.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace ac::notify {

// At most maxBytes from the start of a regular file; nothing when it cannot
// be opened or is not a regular file (a FIFO planted at the path must not
// block the reader); empty for an empty file.
std::optional<std::string> readFilePrefix(const std::string& path, std::size_t maxBytes);

// The whole file when it holds at most `limit` bytes; nothing when it is
// missing, unreadable or larger (only limit + 1 bytes are ever read).
std::optional<std::string> readBoundedFile(const std::string& path, std::size_t limit);

}  // namespace ac::notify
