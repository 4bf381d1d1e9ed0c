#include "Platform/Linux/HTTP/Validator.h"

#include <algorithm>
#include <ctime>

#include "Platform/Linux/HTTP/CurlLibrary.h"

namespace installer {

namespace {

bool isFieldText(std::string_view text) {
  return !text.empty() && text.size() <= 1024 &&
         std::ranges::all_of(text, [](unsigned char c) { return c >= 0x20 && c != 0x7f; });
}

bool isStrongTag(std::string_view text) {
  return text.size() >= 2 && text.starts_with('"') && text.ends_with('"') &&
         text.substr(1, text.size() - 2).find('"') == std::string_view::npos;
}

std::optional<std::time_t> date(const std::string* text) {
  if (text == nullptr) return std::nullopt;
  const auto time = curl().getdate(text->c_str(), nullptr);
  if (time == -1) return std::nullopt;
  return time;
}

}  // namespace

std::optional<Validator> Validator::of(const ResponseHead& head) {
  if (const auto* const tag = head.field("etag")) {
    if (!isStrongTag(*tag) || !isFieldText(*tag)) return std::nullopt;
    return Validator{*tag};
  }
  const auto* const text = head.field("last-modified");
  const auto modified = date(text);
  const auto sent = date(head.field("date"));
  if (!modified || !sent || *sent - *modified < 1 || !isFieldText(*text)) return std::nullopt;
  return Validator{*text};
}

std::optional<Validator> Validator::parse(std::string_view text) {
  if (!isFieldText(text)) return std::nullopt;
  std::string copy{text};
  if (!isStrongTag(text) && !date(&copy)) return std::nullopt;
  return Validator{std::move(copy)};
}

bool Validator::agreesWith(const ResponseHead& head) const {
  const auto* const other = head.field(isEntityTag() ? "etag" : "last-modified");
  return other == nullptr || *other == text_;
}

}  // namespace installer
