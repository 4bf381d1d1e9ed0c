// Addresses, compared with libcurl's parse of the same text.
#include <algorithm>
#include <curl/curl.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Base/Text.h"
#include "Base/URL.h"
#include "Targets.h"
#include "Utils/URLTrust.h"

namespace installer::test {

namespace {

// libcurl's parse of an address, for the parts of a connection.
struct CurlReading {
  std::string scheme;
  std::string host;  // in lower case, without dots at its end
  std::string port;  // empty when the address has none

  friend bool operator==(const CurlReading&, const CurlReading&) = default;
};

std::string part(CURLU* url, CURLUPart which) {
  char* text = nullptr;
  if (curl_url_get(url, which, &text, 0) != CURLUE_OK) return {};
  std::string value{text};
  curl_free(text);
  return value;
}

std::string withoutDots(std::string host) {
  return host.substr(0, host.find_last_not_of('.') + 1);
}

// Absent when libcurl refuses the address; then it is never fetched.
std::optional<CurlReading> readByCurl(const std::string& text) {
  const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> url{curl_url(), &curl_url_cleanup};
  if (curl_url_set(url.get(), CURLUPART_URL, text.c_str(), 0) != CURLUE_OK) return std::nullopt;
  return CurlReading{part(url.get(), CURLUPART_SCHEME),
                     withoutDots(lowercased(part(url.get(), CURLUPART_HOST))),
                     part(url.get(), CURLUPART_PORT)};
}

// Names only: libcurl writes numbers in another form.
const std::vector<std::string> kDomains{
    "kelo.example", "\t CDN.Example.org. ", "*.wild.example", ".lead.example", "...", "", "localhost"};
// The leading point of an entry is kept: only a host with two consecutive points is below it, which isn't a
// name.
constexpr std::string_view kTrusted[]{"kelo.example", "cdn.example.org", ".lead.example", "localhost"};

bool isBelowTrusted(const std::string& host) {
  return std::ranges::any_of(kTrusted, [&host](std::string_view domain) {
    return host == domain || host.ends_with("." + std::string{domain});
  });
}

bool isPlainCharacter(char c) {
  return c > ' ' && c < 0x7F && std::string_view{"\"<>\\^`{|}"}.find(c) == std::string_view::npos;
}

void requireSameReading(const URL& url, const CurlReading& reading) {
  require(lowercased(url.scheme().value_or("")) == reading.scheme, "libcurl sees the same scheme");
  const auto host = url.host().value_or("");
  const auto written = host.find(':') == std::string::npos ? host : "[" + host + "]";
  require(withoutDots(lowercased(written)) == reading.host, "libcurl sees the same host");
  require(!url.port() || std::to_string(*url.port()) == reading.port, "libcurl sees the same port");
}

}  // namespace

void fuzzURLTrust(std::string_view text) {
  const auto url = URL::parse(text);
  if (!url) return;
  require(std::ranges::all_of(text, isPlainCharacter), "an address consists of plain characters");
  require(url->absoluteString() == text, "the text that is judged is the text that is fetched");
  const bool isTrusted = URLTrust::isTrusted(*url, kDomains);
  require(!isTrusted || !URLTrust::isTrusted(*url, {}), "no list trusts no host");
  const auto reading = readByCurl(std::string{text});
  if (!reading) return;
  if (isTrusted) requireSameReading(*url, *reading);
  // libcurl reads a path as a host.
  if (!url->host()) return require(!isTrusted, "an address without a host isn't trusted");
  require(isTrusted == (reading->scheme == "https" && isBelowTrusted(reading->host)),
          "the verdict is that on the host that libcurl connects to");
  const auto below = url->appendingPathComponent("a b/../%2e?#");
  if (isTrusted) requireSameReading(*url, readByCurl(below.absoluteString()).value());
}

}  // namespace installer::test
