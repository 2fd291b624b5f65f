// URL components for validating links that arrive in click payloads and for
// building the links handed to the opener, on top of uriparser's RFC 3986
// parser and recomposer. Strict means closed: anything RFC 3986 does not
// allow literally (a space, a non-ASCII byte, a stray "%", a second "#")
// makes the whole string unparseable rather than "fixed up", and IP-literal
// hosts ("[::1]") are refused since no link here ever names one.
//
// Pure functions; safe from any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ac::notify {

// Components as written (still percent-encoded). Optional components are
// absent when their delimiter is absent: "h:" has an (empty) port, "h" none;
// "@h" has an empty user info.
struct URLComponents {
  std::string scheme;
  std::optional<std::string> userInfo;  // "user" or "user:password"
  std::optional<std::string> host;      // present only after "//"
  std::optional<std::string> port;
  std::string path;
  std::optional<std::string> query;
  std::optional<std::string> fragment;

  bool operator==(const URLComponents&) const = default;
};

struct URLQueryItem {
  std::string name;
  std::optional<std::string> value;  // absent for "name" without "="

  bool operator==(const URLQueryItem&) const = default;
};

std::optional<URLComponents> parseURLComponents(std::string_view url);

// The URL text of `components`, composed by uriparser; nothing when the
// result would not parse back into exactly these components (a piece left
// unescaped, a path without its leading "/" after a host, an empty scheme).
std::optional<std::string> composeURL(const URLComponents& components);

// The "&"-separated items of a query as parseURLComponents returned it
// (already checked to be well-formed), each name and value percent-decoded;
// empty items are kept, so "a&&b" has three. Nothing when a decoded piece is
// not UTF-8.
std::optional<std::vector<URLQueryItem>> parseQueryItems(std::string_view percentEncodedQuery);

// Every byte but the unreserved ASCII ones ("A-Za-z0-9-._~") percent-encoded
// with uppercase hex, NUL included.
std::string percentEncodeBytes(std::string_view bytes);

// Percent-encodes a query item's name or value: every byte except the
// unreserved characters and "!$'()*,;:@/?" is escaped, so "&", "=", "+" and
// "#" inside a value can never split or end the query.
std::string percentEncodeQueryComponent(std::string_view text);

}  // namespace ac::notify
