// Identifies one version of a resource, byte for byte.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform/Linux/HTTP/ResponseHead.h"

namespace installer {

class Validator {
 public:
  // A strong entity tag, or without any tag a strong last-modified date: at least a second older than the
  // response. Absent when the response has neither; a weak tag doesn't identify bytes.
  static std::optional<Validator> of(const ResponseHead& head);
  // Reads a result of `text()`; absent for anything that a header field can't contain.
  static std::optional<Validator> parse(std::string_view text);

  // The value of "If-Range:".
  const std::string& text() const { return text_; }
  bool isEntityTag() const { return text_.starts_with('"'); }

  // False when `head` names another version; true when it names none.
  bool agreesWith(const ResponseHead& head) const;

  friend bool operator==(const Validator&, const Validator&) = default;

 private:
  explicit Validator(std::string text) : text_{std::move(text)} {}

  std::string text_;
};

}  // namespace installer
