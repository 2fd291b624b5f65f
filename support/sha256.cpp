#include "support/sha256.h"

#include <algorithm>
#include <cstdlib>

#if defined(__APPLE__)
#include <CommonCrypto/CommonDigest.h>
#else
#include <openssl/evp.h>
#endif

namespace ac {

std::array<uint8_t, 32> sha256(std::string_view data) {
  std::array<uint8_t, 32> digest{};
#if defined(__APPLE__)
  static_assert(CC_SHA256_DIGEST_LENGTH == 32);
  // CC_LONG is 32 bits: feed longer inputs in pieces rather than truncate.
  CC_SHA256_CTX context;
  CC_SHA256_Init(&context);
  for (std::size_t done = 0; done < data.size();) {
    const std::size_t piece = std::min<std::size_t>(data.size() - done, 1u << 30);
    CC_SHA256_Update(&context, data.data() + done, static_cast<CC_LONG>(piece));
    done += piece;
  }
  CC_SHA256_Final(digest.data(), &context);
#else
  unsigned int length = 0;
  // Only an allocation failure inside libcrypto fails a one-shot digest; a
  // made-up digest could match a stale one, so stop rather than guess.
  if (EVP_Digest(data.data(), data.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1 ||
      length != digest.size())
    std::abort();
#endif
  return digest;
}

}  // namespace ac
