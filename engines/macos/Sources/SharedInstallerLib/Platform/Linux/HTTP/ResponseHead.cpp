#include "Platform/Linux/HTTP/ResponseHead.h"

#include <algorithm>
#include <array>
#include <memory>

#include "Base/Text.h"
#include "Platform/Linux/HTTP/CurlLibrary.h"

namespace installer {

namespace {

std::optional<std::int64_t> number(std::string_view text) {
  const auto value = wholeNumber<std::int64_t>(text);
  return value >= 0 ? value : std::nullopt;
}

// A scheme makes a reference absolute; libcurl treats "data:x" as a path below the base.
bool isAbsoluteWithoutHost(std::string_view location) {
  const auto colon = location.find(':');
  return colon < location.find_first_of("/?#") && !location.substr(colon).starts_with("://");
}

// `location` resolved as a browser resolves it on a page at `base`.
std::optional<std::string> resolved(const std::string& base, const std::string& location) {
  if (isAbsoluteWithoutHost(location)) return std::nullopt;
  const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> url{curl().url(), curl().url_cleanup};
  constexpr unsigned anyScheme = CURLU_NON_SUPPORT_SCHEME;
  if (curl().url_set(url.get(), CURLUPART_URL, base.c_str(), anyScheme) != CURLUE_OK) return std::nullopt;
  if (curl().url_set(url.get(), CURLUPART_URL, location.c_str(), anyScheme | CURLU_URLENCODE) != CURLUE_OK) {
    return std::nullopt;
  }
  char* text = nullptr;
  if (curl().url_get(url.get(), CURLUPART_URL, &text, 0) != CURLUE_OK) return std::nullopt;
  std::string result{text};
  curl().free(text);
  return result;
}

}  // namespace

void ResponseHead::addField(std::string_view name, std::string_view value) {
  const auto [entry, isNew] = fields_.try_emplace(lowercased(name), value);
  if (!isNew && entry->first == "content-length" && entry->second != value) contradictsItself_ = true;
  const auto coding = entry->first == "transfer-encoding" ? lowercased(value) : "identity";
  if (coding != "chunked" && coding != "identity") hasForeignTransferCoding_ = true;
  entry->second = value;
}

const std::string* ResponseHead::field(std::string_view name) const {
  const auto entry = fields_.find(name);
  return entry == fields_.end() ? nullptr : &entry->second;
}

bool ResponseHead::isMultipart() const {
  const auto* const type = field("content-type");
  return type != nullptr && lowercased(*type).starts_with("multipart/");
}

bool ResponseHead::isEncoded() const {
  static constexpr std::array kDecoded{"gzip", "x-gzip", "deflate", "br"};
  const auto* const encoding = field("content-encoding");
  return encoding != nullptr && std::ranges::find(kDecoded, lowercased(*encoding)) != kDecoded.end();
}

std::optional<ContentRange> ResponseHead::contentRange() const {
  const auto* const text = field("content-range");
  if (text == nullptr || !text->starts_with("bytes ")) return std::nullopt;
  const auto range = trimmed(std::string_view{*text}.substr(6));
  const auto dash = range.find('-');
  const auto slash = range.find('/');
  if (dash == std::string_view::npos || slash == std::string_view::npos || dash > slash) return std::nullopt;
  const auto first = number(range.substr(0, dash));
  const auto last = number(range.substr(dash + 1, slash - dash - 1));
  if (!first || !last || *last < *first) return std::nullopt;
  if (range.substr(slash + 1) == "*") return ContentRange{*first, *last, std::nullopt};
  const auto total = number(range.substr(slash + 1));
  if (!total || *total <= *last) return std::nullopt;
  return ContentRange{*first, *last, total};
}

std::optional<URL> ResponseHead::redirectTarget() const {
  static constexpr std::array kRedirects{301, 302, 303, 307, 308};
  if (std::ranges::find(kRedirects, status) == kRedirects.end()) return std::nullopt;
  const auto* const location = field("location");
  if (location == nullptr) return std::nullopt;
  const auto absolute = resolved(url.absoluteString(), *location);
  return URL::parse(absolute.value_or("")).value_or(URL{});
}

}  // namespace installer
