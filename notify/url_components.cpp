#include "notify/url_components.h"

#include "notify/unicode_text.h"

namespace ac::notify {
namespace {

bool isAlpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isHex(char c) { return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }
bool isUnreserved(char c) { return isAlpha(c) || isDigit(c) || c == '-' || c == '.' || c == '_' || c == '~'; }

int hexValue(char c) {
  if (isDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return c - 'A' + 10;
}

// Characters a URL may carry literally, brackets excluded (no IPv6 hosts
// are ever valid here).
bool isURLCharacter(char c) {
  static constexpr std::string_view delimiters = ":/?#@!$&'()*+,;=";
  return isUnreserved(c) || delimiters.find(c) != std::string_view::npos;
}

bool hasOnlyURLCharacters(std::string_view s) {
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '%') {
      if (i + 2 >= s.size() || !isHex(s[i + 1]) || !isHex(s[i + 2])) return false;
      i += 2;
    } else if (!isURLCharacter(s[i])) {
      return false;
    }
  }
  return true;
}

bool isScheme(std::string_view s) {
  if (s.empty() || !isAlpha(s[0])) return false;
  for (char c : s) {
    if (!isAlpha(c) && !isDigit(c) && c != '+' && c != '-' && c != '.') return false;
  }
  return true;
}

void splitAuthority(std::string_view authority, URLComponents& out) {
  std::size_t at = authority.rfind('@');
  if (at != std::string_view::npos) {
    std::string_view userinfo = authority.substr(0, at);
    authority.remove_prefix(at + 1);
    std::size_t colon = userinfo.find(':');
    out.user = std::string(userinfo.substr(0, colon));
    if (colon != std::string_view::npos) out.password = std::string(userinfo.substr(colon + 1));
  }
  std::size_t colon = authority.find(':');
  out.host = std::string(authority.substr(0, colon));
  if (colon != std::string_view::npos) out.port = std::string(authority.substr(colon + 1));
}

}  // namespace

std::optional<URLComponents> parseURLComponents(std::string_view url) {
  if (!hasOnlyURLCharacters(url)) return std::nullopt;
  URLComponents out;
  std::size_t colon = url.find(':');
  if (colon == std::string_view::npos || !isScheme(url.substr(0, colon))) return std::nullopt;
  out.scheme = std::string(url.substr(0, colon));
  std::string_view rest = url.substr(colon + 1);

  std::size_t hash = rest.find('#');
  if (hash != std::string_view::npos) {
    std::string_view fragment = rest.substr(hash + 1);
    if (fragment.find('#') != std::string_view::npos) return std::nullopt;
    out.fragment = std::string(fragment);
    rest = rest.substr(0, hash);
  }
  std::size_t question = rest.find('?');
  if (question != std::string_view::npos) {
    out.query = std::string(rest.substr(question + 1));
    rest = rest.substr(0, question);
  }
  if (rest.starts_with("//")) {
    rest.remove_prefix(2);
    std::size_t slash = rest.find('/');
    splitAuthority(rest.substr(0, slash), out);
    rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);
    if (out.port && !out.port->empty()) {
      for (char c : *out.port) {
        if (!isDigit(c)) return std::nullopt;
      }
    }
  }
  out.path = std::string(rest);
  return out;
}

std::optional<std::string> percentDecode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out.push_back(text[i]);
      continue;
    }
    if (i + 2 >= text.size() || !isHex(text[i + 1]) || !isHex(text[i + 2])) return std::nullopt;
    out.push_back(static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2])));
    i += 2;
  }
  return out;
}

std::optional<std::vector<URLQueryItem>> parseQueryItems(std::string_view query) {
  std::vector<URLQueryItem> items;
  std::size_t start = 0;
  while (start <= query.size()) {
    std::size_t amp = query.find('&', start);
    std::string_view item = query.substr(start, amp == std::string_view::npos ? std::string_view::npos : amp - start);
    std::size_t eq = item.find('=');
    auto name = percentDecode(item.substr(0, eq));
    if (!name || !text::isValidUTF8(*name)) return std::nullopt;
    URLQueryItem parsed{*name, std::nullopt};
    if (eq != std::string_view::npos) {
      auto value = percentDecode(item.substr(eq + 1));
      if (!value || !text::isValidUTF8(*value)) return std::nullopt;
      parsed.value = *value;
    }
    items.push_back(std::move(parsed));
    if (amp == std::string_view::npos) break;
    start = amp + 1;
  }
  return items;
}

std::string percentEncodeQueryComponent(std::string_view text) {
  static constexpr std::string_view kept = "!$'()*,;:@/?";
  static constexpr char hex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (isUnreserved(c) || kept.find(c) != std::string_view::npos) {
      out.push_back(c);
    } else {
      auto byte = static_cast<unsigned char>(c);
      out.push_back('%');
      out.push_back(hex[byte >> 4]);
      out.push_back(hex[byte & 0xF]);
    }
  }
  return out;
}

}  // namespace ac::notify
