// SHA-256 from the platform's own crypto library: CommonCrypto on macOS,
// OpenSSL's libcrypto elsewhere. Thread-safe; no state.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace ac {

std::array<uint8_t, 32> sha256(std::string_view data);

}  // namespace ac
