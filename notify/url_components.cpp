#include "notify/url_components.h"

#include <uriparser/Uri.h>

#include "notify/unicode_text.h"
#include "support/text.h"

namespace ac::notify {
namespace {

// uriparser marks an absent component with a null `first`; an empty but
// present one points at some non-null (possibly static) empty text.
std::optional<std::string> componentText(const UriTextRangeA& range) {
  if (!range.first) return std::nullopt;
  return std::string(range.first, range.afterLast);
}

UriTextRangeA range(std::string_view s) {
  // data() of an empty std::string is non-null, which keeps "present but
  // empty" apart from absent.
  return {s.data(), s.data() + s.size()};
}

UriTextRangeA range(const std::optional<std::string>& s) {
  return s ? range(std::string_view(*s)) : UriTextRangeA{nullptr, nullptr};
}

// After a host every segment follows a "/"; without one only an absolute
// path starts with "/".
std::string pathText(const UriUriA& uri) {
  std::string path = uri.absolutePath ? "/" : "";
  bool first = true;
  for (const UriPathSegmentA* segment = uri.pathHead; segment; segment = segment->next) {
    if (uri.hostText.first || !first) path += '/';
    path.append(segment->text.first, segment->text.afterLast);
    first = false;
  }
  return path;
}

// uriUnescapeInPlaceExA returns the new end, so a decoded "%00" survives
// instead of cutting the piece short. It reads up to a NUL, which a parsed
// query never holds literally.
std::optional<std::string> decodedUTF8(std::string_view encoded) {
  if (encoded.find('\0') != std::string_view::npos) return std::nullopt;
  std::string buffer(encoded);
  const char* end = uriUnescapeInPlaceExA(buffer.data(), URI_FALSE, URI_BR_DONT_TOUCH);
  buffer.resize(static_cast<std::size_t>(end - buffer.data()));
  if (!text::isValidUTF8(buffer)) return std::nullopt;
  return buffer;
}

}  // namespace

std::optional<URLComponents> parseURLComponents(std::string_view url) {
  UriUriA uri;
  const char* errorPos = nullptr;
  if (uriParseSingleUriExA(&uri, url.data(), url.data() + url.size(), &errorPos) != URI_SUCCESS) return std::nullopt;
  // A relative reference parses too, but only an absolute URL is a link.
  std::optional<URLComponents> out;
  if (uri.scheme.first && !uri.hostData.ip6 && !uri.hostData.ipFuture.first) {
    out = URLComponents{
        .scheme = *componentText(uri.scheme),
        .userInfo = componentText(uri.userInfo),
        .host = componentText(uri.hostText),
        .port = componentText(uri.portText),
        .path = pathText(uri),
        .query = componentText(uri.query),
        .fragment = componentText(uri.fragment),
    };
  }
  uriFreeUriMembersA(&uri);
  return out;
}

std::optional<std::string> composeURL(const URLComponents& c) {
  UriUriA uri{};
  uri.scheme = range(std::string_view(c.scheme));
  uri.userInfo = range(c.userInfo);
  uri.hostText = range(c.host);
  uri.portText = range(c.port);
  uri.query = range(c.query);
  uri.fragment = range(c.fragment);
  uri.owner = URI_FALSE;

  std::string_view path = c.path;
  if (path.starts_with('/')) {
    uri.absolutePath = c.host ? URI_FALSE : URI_TRUE;
    path.remove_prefix(1);
  }
  std::vector<UriPathSegmentA> segments;
  if (!path.empty() || (c.host && !c.path.empty())) {
    for (std::string_view piece : splitKeepingEmpty(path, '/')) segments.push_back({range(piece), nullptr, nullptr});
    for (std::size_t i = 0; i + 1 < segments.size(); ++i) segments[i].next = &segments[i + 1];
    uri.pathHead = &segments.front();
    uri.pathTail = &segments.back();
  }

  int required = 0;
  if (uriToStringCharsRequiredA(&uri, &required) != URI_SUCCESS) return std::nullopt;
  std::string composed(static_cast<std::size_t>(required) + 1, '\0');
  int written = 0;
  if (uriToStringA(composed.data(), &uri, required + 1, &written) != URI_SUCCESS) return std::nullopt;
  composed.resize(static_cast<std::size_t>(written) - 1);  // `written` counts the terminator
  if (parseURLComponents(composed) != c) return std::nullopt;
  return composed;
}

// Split here rather than by uriDissectQueryMallocExA, which drops empty
// items (so "a&&b" would pass for two) and cuts a value at a decoded NUL.
std::optional<std::vector<URLQueryItem>> parseQueryItems(std::string_view query) {
  std::vector<URLQueryItem> items;
  for (std::string_view item : splitKeepingEmpty(query, '&')) {
    std::size_t eq = item.find('=');
    auto name = decodedUTF8(item.substr(0, eq));
    if (!name) return std::nullopt;
    URLQueryItem parsed{std::move(*name), std::nullopt};
    if (eq != std::string_view::npos) {
      parsed.value = decodedUTF8(item.substr(eq + 1));
      if (!parsed.value) return std::nullopt;
    }
    items.push_back(std::move(parsed));
  }
  return items;
}

std::string percentEncodeBytes(std::string_view bytes) {
  // uriEscapeExA stops at a NUL byte whatever end it is given, so each run
  // between NULs is escaped on its own.
  std::string out;
  bool first = true;
  for (std::string_view run : splitKeepingEmpty(bytes, '\0')) {
    if (!first) out += "%00";
    first = false;
    std::string escaped(run.size() * 3 + 1, '\0');
    char* end = uriEscapeExA(run.data(), run.data() + run.size(), escaped.data(), URI_FALSE, URI_FALSE);
    out.append(escaped.data(), end);
  }
  return out;
}

std::string percentEncodeQueryComponent(std::string_view text) {
  // What a query item may carry literally beyond the unreserved characters:
  // the sub-delimiters and ":@/?" that do not split items.
  static constexpr std::string_view keptLiterally = "!$'()*,;:@/?";
  std::string out;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t stop = text.find_first_of(keptLiterally, start);
    if (stop == std::string_view::npos) stop = text.size();
    out += percentEncodeBytes(text.substr(start, stop - start));
    if (stop < text.size()) out += text[stop];
    start = stop + 1;
  }
  return out;
}

}  // namespace ac::notify
