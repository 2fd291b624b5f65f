// The record-start refusal headline and reason sanitizer on arbitrary bytes:
// a reason never carries controls, invisible scalars or stray whitespace,
// sanitizing is idempotent, and a headline is never longer than 160
// characters.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>

#include "fuzz_check.h"
#include "notify/record_start_outcome.h"
#include "notify/unicode_text.h"

using namespace ac::notify;

namespace {

void checkReason(const std::string& reason) {
  FUZZ_CHECK(text::isValidUTF8(reason));
  char32_t previous = U' ';
  for (char32_t c : text::scalars(reason)) {
    FUZZ_CHECK(!text::isControl(c));
    FUZZ_CHECK(std::find(std::begin(recordStartInvisibleScalars), std::end(recordStartInvisibleScalars), c) ==
               std::end(recordStartInvisibleScalars));
    FUZZ_CHECK(!text::isWhitespace(c) || (c == U' ' && previous != U' '));
    previous = c;
  }
  FUZZ_CHECK(reason.empty() || reason.back() != ' ');
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  std::string output(reinterpret_cast<const char*>(data), size);
  std::string reason = recordStartSanitizedReason(output);
  checkReason(reason);
  FUZZ_CHECK(recordStartSanitizedReason(reason) == reason);

  if (auto headline = recordStartRefusalHeadline(output)) {
    FUZZ_CHECK(!headline->text.empty());
    FUZZ_CHECK(text::characterCount(headline->text) <= recordStartReasonMaxChars);
  }
  auto outcome = classifyRecordStartClick(size % 3, output, size % 5 != 0, size % 7 == 0);
  bool banner = recordStartClickBanner(outcome).has_value();
  FUZZ_CHECK(banner == (outcome.kind == RecordStartClickOutcome::Kind::refused));
  return 0;
}
