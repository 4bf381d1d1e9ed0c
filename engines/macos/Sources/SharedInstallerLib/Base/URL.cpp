#include "Base/URL.h"

#include <algorithm>

#include "Base/Text.h"

namespace installer {

namespace {

bool isAlpha(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isDigit(char c) {
  return c >= '0' && c <= '9';
}
bool isHex(char c) {
  return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
bool isUnreserved(char c) {
  return isAlpha(c) || isDigit(c) || c == '-' || c == '.' || c == '_' || c == '~';
}
bool isOneOf(char c, std::string_view set) {
  return set.find(c) != std::string_view::npos;
}
constexpr std::string_view kSubDelimiters = "!$&'()*+,;=";

// Every character is unreserved, one of `also`, or a whole percent escape.
bool consistsOf(std::string_view text, std::string_view also) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (isUnreserved(text[i]) || isOneOf(text[i], also)) continue;
    if (text[i] != '%' || i + 2 >= text.size() || !isHex(text[i + 1]) || !isHex(text[i + 2])) return false;
    i += 2;
  }
  return true;
}

bool isScheme(std::string_view text) {
  return !text.empty() && isAlpha(text.front()) && std::ranges::all_of(text, [](char c) {
    return isAlpha(c) || isDigit(c) || c == '+' || c == '-' || c == '.';
  });
}

std::string percentDecoded(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto value = text[i] == '%' ? wholeNumber<std::uint8_t>(text.substr(i + 1, 2), 16) : std::nullopt;
    decoded += value ? static_cast<char>(*value) : text[i];
    if (value) i += 2;
  }
  return decoded;
}

std::string percentEncodedPath(std::string_view text) {
  static constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : text) {
    if (isUnreserved(c) || isOneOf(c, kSubDelimiters) || isOneOf(c, ":@/")) {
      encoded += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    encoded += '%';
    encoded += kDigits[byte >> 4U];
    encoded += kDigits[byte & 15U];
  }
  return encoded;
}

// Removes `mark` and the text after it. False when that text is malformed.
bool dropAfter(std::string_view& text, char mark) {
  const auto at = text.find(mark);
  if (at == std::string_view::npos) return true;
  const auto dropped = text.substr(at + 1);
  text = text.substr(0, at);
  return consistsOf(dropped, "!$&'()*+,;=:@/?");
}

struct HostAndPort {
  std::string_view host;  // without brackets
  std::string_view port;  // with the text before it, which must be ":"; empty without one
};

// Absent for a malformed host.
std::optional<HostAndPort> hostAndPort(std::string_view text) {
  if (!text.starts_with('[')) {
    const auto host = text.substr(0, text.find(':'));
    if (!std::ranges::all_of(host, isUnreserved)) return std::nullopt;
    return HostAndPort{host, text.substr(host.size())};
  }
  const auto close = text.find(']');
  if (close == std::string_view::npos) return std::nullopt;
  const auto host = text.substr(1, close - 1);
  const auto isInAddress = [](char c) { return isHex(c) || c == ':' || c == '.'; };
  if (host.empty() || !std::ranges::all_of(host, isInAddress)) return std::nullopt;
  return HostAndPort{host, text.substr(close + 1)};
}

}  // namespace

std::optional<URL> URL::parse(std::string_view text) {
  if (text.empty()) return std::nullopt;
  URL url;
  url.text_ = text;

  if (!dropAfter(text, '#') || !dropAfter(text, '?')) return std::nullopt;
  const auto colon = text.find(':');
  if (colon != std::string_view::npos && text.find('/') > colon) {
    if (!isScheme(text.substr(0, colon))) return std::nullopt;
    url.scheme_ = std::string{text.substr(0, colon)};
    text = text.substr(colon + 1);
  }
  if (text.starts_with("//")) {
    text.remove_prefix(2);
    const auto end = std::min(text.find('/'), text.size());
    if (!url.parseAuthority(text.substr(0, end))) return std::nullopt;
    text = text.substr(end);
  }
  if (!consistsOf(text, "!$&'()*+,;=:@/")) return std::nullopt;
  url.path_ = text;
  return url;
}

bool URL::parseAuthority(std::string_view authority) {
  authority_ = authority;
  if (const auto at = authority.rfind('@'); at != std::string_view::npos) {
    if (!consistsOf(authority.substr(0, at), "!$&'()*+,;=:")) return false;
    authority = authority.substr(at + 1);
  }
  auto parts = hostAndPort(authority);
  if (!parts) return false;
  if (!parts->port.empty()) {
    if (parts->port.front() != ':') return false;
    parts->port.remove_prefix(1);
    port_ = wholeNumber<std::uint16_t>(parts->port);
    if (!parts->port.empty() && !port_) return false;
  }
  if (!parts->host.empty()) host_ = std::string{parts->host};
  return true;
}

std::string URL::lastPathComponent() const {
  std::string_view path = path_;
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return percentDecoded(path.substr(path.rfind('/') + 1));
}

URL URL::appendingPathComponent(std::string_view component) const {
  std::string path = path_;
  if (path.empty() || path.back() != '/') path += '/';
  while (component.starts_with('/')) component.remove_prefix(1);
  path += percentEncodedPath(component);

  URL url = *this;
  url.path_ = path;
  url.text_ = scheme_ ? *scheme_ + ":" : std::string{};
  if (!authority_.empty() || host_) url.text_ += "//" + authority_;
  url.text_ += path;
  return url;
}

}  // namespace installer
