// The click-token grammar against a reference matcher written separately
// from its table (regular expressions and a naive percent decoder): every
// token the resolver accepts must be accepted by the reference as the same
// kind of target, and the exact forms must agree both ways.
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <regex>
#include <string>

#include "fuzz_check.h"
#include "notify/click_payload.h"
#include "notify/unicode_text.h"

using namespace ac::notify;

namespace {

const std::string stamp = "[0-9]{1,12}_[0-9]{1,10}";
const std::regex recordingsRe("^vela-app:recordings$");
const std::regex recordStartRe("^vela-app:record-start$");
const std::regex silenceRe("^vela-app:ignore-silence:(TRANSCRIPT_PENDING_" + stamp + ")$");
const std::regex openNoteRe("^vela-app:open-note:(TRANSCRIPT_PENDING_(JOINED_)?" + stamp + ")$");
const std::regex notionRe("^https://www\\.notion\\.so/[0-9a-f]{32}(#[0-9a-f]{32})?$");
const std::regex appleNotesRe("^vela-applenotes://show/?\\?([^&#]*)&([^&#]*)$");
const std::regex uuidRe("^[0-9A-Fa-f]{8}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{12}$");
const std::regex noteIdRe("^x-coredata://([^/]*)/ICNote/[^/]+$");
const std::regex urlCharsRe("^[A-Za-z0-9._~:/?#@!$&'()*+,;=%-]*$");

bool matches(const std::string& s, const std::regex& re, std::smatch* m = nullptr) {
  std::smatch local;
  return std::regex_match(s, m ? *m : local, re);
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool naiveDecode(const std::string& in, std::string& out) {
  out.clear();
  for (std::size_t i = 0; i < in.size(); ++i) {
    if (in[i] != '%') {
      out += in[i];
      continue;
    }
    if (i + 2 >= in.size() || hexDigit(in[i + 1]) < 0 || hexDigit(in[i + 2]) < 0) return false;
    out += static_cast<char>(hexDigit(in[i + 1]) * 16 + hexDigit(in[i + 2]));
    i += 2;
  }
  return true;
}

bool referenceAppleNotes(const std::string& token) {
  std::smatch m;
  if (!matches(token, appleNotesRe, &m) || !matches(token, urlCharsRe)) return false;
  std::string noteId, store;
  for (const std::string& item : {m[1].str(), m[2].str()}) {
    auto eq = item.find('=');
    if (eq == std::string::npos) return false;
    std::string name, value;
    if (!naiveDecode(item.substr(0, eq), name) || !naiveDecode(item.substr(eq + 1), value)) return false;
    std::string& slot = name == "note_id" ? noteId : name == "store_uuid" ? store : name;
    if (&slot == &name || !slot.empty()) return false;
    slot = value;
  }
  std::smatch idParts;
  std::string id = noteId;
  return matches(id, noteIdRe, &idParts) && matches(store, uuidRe) && idParts[1].str() == store;
}

// The path must come back from the link unchanged, and only unreserved ASCII
// or non-ASCII bytes may stand unescaped.
bool referenceNotePathURL(const std::string& path, const std::string& url) {
  const std::string prefix = "obsidian://open?path=";
  if (url.rfind(prefix, 0) != 0) return false;
  std::string encoded = url.substr(prefix.size()), decoded;
  for (unsigned char c : encoded) {
    bool ok = c >= 0x80 || std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~' || c == '%';
    if (!ok) return false;
  }
  return naiveDecode(encoded, decoded) && decoded == path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  std::string token(reinterpret_cast<const char*>(data), size);
  NotifyClickResult result = resolveNotifyClickTarget(token);
  // The reference's regular expressions recurse per character; tokens are
  // short in practice and the grammar has nothing that needs length.
  if (size > 512) return 0;
  const NotifyClickTarget* target = clickTarget(result);

  // Exact forms: both directions.
  FUZZ_CHECK(matches(token, recordingsRe) == (target && std::holds_alternative<ClickRecordings>(*target)));
  FUZZ_CHECK(matches(token, recordStartRe) == (target && std::holds_alternative<ClickStartRecording>(*target)));
  std::smatch m;
  bool silence = matches(token, silenceRe, &m);
  FUZZ_CHECK(silence == (target && std::holds_alternative<ClickIgnoreSilence>(*target)));
  if (silence) FUZZ_CHECK(std::get<ClickIgnoreSilence>(*target).marker == m[1].str());
  bool openNote = matches(token, openNoteRe, &m);
  FUZZ_CHECK(openNote == (target && std::holds_alternative<ClickOpenNote>(*target)));
  if (openNote) FUZZ_CHECK(std::get<ClickOpenNote>(*target).marker == m[1].str());
  FUZZ_CHECK(!(target && std::holds_alternative<ClickSnoozeSilence>(*target)));

  bool isPath = !token.empty() && token[0] == '/';
  if (isPath) FUZZ_CHECK(static_cast<bool>(target) == text::isValidUTF8(token));
  if (matches(token, notionRe)) FUZZ_CHECK(target && std::get<ClickURL>(*target).url == token);

  // Links: whatever is accepted, the reference accepts too.
  if (target) {
    if (auto* url = std::get_if<ClickURL>(target)) {
      if (isPath) {
        FUZZ_CHECK(referenceNotePathURL(token, url->url));
      } else if (token.rfind("vela-applenotes://", 0) == 0) {
        FUZZ_CHECK(referenceAppleNotes(token));
        FUZZ_CHECK(resolveNotifyClickTarget(url->url) == result);  // the rebuilt link is a fixed point
      } else {
        FUZZ_CHECK(matches(token, notionRe));
      }
    }
  } else {
    FUZZ_CHECK(!clickRejection(result) || *clickRejection(result) != NotifyClickRejection::actionOnly);
  }
  return 0;
}
