// A URL of RFC 3986, parsed strictly: ambiguous text isn't a URL. The host fetches this object, so that the
// checked address is the one used. `URL{}`, without a scheme and a host, means an unreadable address.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace installer {

class URL {
 public:
  // Absent for empty text, blanks, control or non-ASCII characters, a malformed escape, host or port.
  // A reference without a scheme or host is a URL whose `scheme` or `host` is absent.
  static std::optional<URL> parse(std::string_view text);

  const std::string& absoluteString() const { return text_; }  // as written
  const std::optional<std::string>& scheme() const { return scheme_; }
  const std::optional<std::string>& host() const { return host_; }  // without user, port and IPv6 brackets
  std::optional<std::uint16_t> port() const { return port_; }
  const std::string& path() const { return path_; }  // percent-encoded, as written

  // The last segment of the path, decoded; empty when there is none.
  std::string lastPathComponent() const;

  // This URL with "/" + `component` appended to its path; query and fragment are dropped. Characters that a
  // path can't have are percent-encoded; a "/" in `component` separates segments.
  URL appendingPathComponent(std::string_view component) const;

  friend bool operator==(const URL& a, const URL& b) { return a.text_ == b.text_; }

 private:
  std::string text_;
  std::optional<std::string> scheme_;
  std::optional<std::string> host_;
  std::optional<std::uint16_t> port_;
  std::string authority_;  // as written, with user and port
  std::string path_;

  bool parseAuthority(std::string_view authority);
};

}  // namespace installer
