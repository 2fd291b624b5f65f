// A strict splitter of absolute URLs into their components, for validating
// links that arrive in click payloads. Strict means closed: any character a
// URL may not carry literally (a space, a non-ASCII byte, a stray "%" or a
// second "#") makes the whole string unparseable rather than "fixed up".
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ac::notify {

// Components as written (still percent-encoded). Optional components are
// absent when their delimiter is absent: "h:" has an (empty) port, "h" none.
struct URLComponents {
  std::string scheme;
  std::optional<std::string> user;
  std::optional<std::string> password;
  std::optional<std::string> host;  // present only after "//"
  std::optional<std::string> port;
  std::string path;
  std::optional<std::string> query;
  std::optional<std::string> fragment;
};

struct URLQueryItem {
  std::string name;
  std::optional<std::string> value;  // absent for "name" without "="

  bool operator==(const URLQueryItem&) const = default;
};

std::optional<URLComponents> parseURLComponents(std::string_view url);

// The "&"-separated items of a percent-encoded query, each name and value
// percent-decoded; nothing when a decoded piece is not UTF-8.
std::optional<std::vector<URLQueryItem>> parseQueryItems(std::string_view percentEncodedQuery);

// Percent-encodes a query item's name or value: every byte except the
// unreserved characters and "!$'()*,;:@/?" is escaped, so "&", "=", "+" and
// "#" inside a value can never split or end the query.
std::string percentEncodeQueryComponent(std::string_view text);

// "%41" -> "A"; nothing for a truncated or non-hex escape.
std::optional<std::string> percentDecode(std::string_view text);

}  // namespace ac::notify
