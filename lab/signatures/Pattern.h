// POSIX extended regular expressions from untrusted input.
// Matching takes time proportional to the text times the expression's size, whatever the expression:
// all alternatives are followed at once, none is tried again.
#pragma once

#include <bitset>
#include <string_view>
#include <vector>

#include "Bytes.h"
#include "Outcome.h"

namespace lab {

class Pattern {
 public:
  // Refuses malformed expressions, back references, and expressions that grow beyond a few thousand states.
  static Outcome<Pattern> compile(std::string_view expression);

  // True when the expression matches somewhere in `text`, which is taken byte by byte.
  bool matches(std::string_view text) const;

  // What matching one byte of a text costs at most.
  std::size_t size() const { return steps_.size(); }

 private:
  friend class PatternCompiler;
  friend class PatternRun;

  struct Step {
    enum class Kind { bytes, begin, end, fork, jump, accept };
    Kind kind = Kind::accept;
    std::uint32_t set = 0;    // bytes: index into sets_
    std::uint32_t next = 0;   // fork, jump
    std::uint32_t other = 0;  // fork
  };

  std::vector<Step> steps_;
  std::vector<std::bitset<256>> sets_;
};

}  // namespace lab
