// What tells one version of a resource from another, byte for byte.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform/Linux/HTTP/ResponseHead.h"

namespace installer {

class Validator {
 public:
  // A strong entity tag, or without any tag a last-modified date that is strong: at least a second older than
  // the response. Absent when the response has neither; a weak tag vouches for no bytes.
  static std::optional<Validator> of(const ResponseHead& head);
  // From a text that `text()` gave; absent for anything that a header field can't hold.
  static std::optional<Validator> parse(std::string_view text);

  // The value of "If-Range:".
  const std::string& text() const { return text_; }
  bool isEntityTag() const { return text_.starts_with('"'); }

  // False when `head` names another version. A head that names none isn't contradicting.
  bool agreesWith(const ResponseHead& head) const;

  friend bool operator==(const Validator&, const Validator&) = default;

 private:
  explicit Validator(std::string text) : text_{std::move(text)} {}

  std::string text_;
};

}  // namespace installer
