// POSIX extended regular expressions from untrusted input, by RE2: the time of a match is proportional to the
// text for every expression.
#pragma once

#include <memory>
#include <string_view>

#include "Outcome.h"

namespace re2 {
class RE2;
}

namespace lab {

class Pattern {
 public:
  // Refuses malformed expressions, back references, collation, and expressions with more than a few thousand
  // states.
  static Outcome<Pattern> compile(std::string_view expression);

  // True when the expression matches a part of `text`, byte by byte. Any thread.
  bool matches(std::string_view text) const;

  // The number of instructions of the compiled expression.
  std::size_t size() const;

 private:
  explicit Pattern(std::shared_ptr<const re2::RE2> expression) : expression_(std::move(expression)) {}

  std::shared_ptr<const re2::RE2> expression_;
};

}  // namespace lab
