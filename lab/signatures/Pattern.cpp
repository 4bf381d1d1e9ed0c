#include "Pattern.h"

#include <array>
#include <cctype>
#include <optional>

namespace lab {

namespace {

constexpr std::size_t kMostSteps = 4000;
constexpr std::size_t kLongest = 1024;
constexpr int kDeepest = 32;
constexpr unsigned kMostRepeats = 255;

using ByteSet = std::bitset<256>;

std::size_t indexOf(char c) {
  return static_cast<unsigned char>(c);
}

// A repetition's bounds; no upper one means any number.
struct Bounds {
  unsigned least = 0;
  std::optional<unsigned> most;
};

bool isInClass(std::string_view name, int c) {
  if (name == "alpha") return std::isalpha(c) != 0;
  if (name == "digit") return std::isdigit(c) != 0;
  if (name == "alnum") return std::isalnum(c) != 0;
  if (name == "upper") return std::isupper(c) != 0;
  if (name == "lower") return std::islower(c) != 0;
  if (name == "space") return std::isspace(c) != 0;
  if (name == "punct") return std::ispunct(c) != 0;
  if (name == "xdigit") return std::isxdigit(c) != 0;
  return false;
}

}  // namespace

// Recursive descent straight to steps. A repeated piece is compiled once and copied, which the limit on
// steps bounds.
class PatternCompiler {
 public:
  explicit PatternCompiler(std::string_view text) : text_(text) {}

  Outcome<Pattern> compile() {
    if (text_.size() > kLongest) return refuse("regular expression is too long");
    alternatives(0);
    if (error_.empty() && at_ != text_.size()) error_ = "unbalanced parenthesis";
    if (!error_.empty()) return refuse("regular expression \"{}\": {}", printable(text_), error_);
    add({Pattern::Step::Kind::accept, 0, 0, 0});
    return std::move(pattern_);
  }

 private:
  using Step = Pattern::Step;

  bool ended() const { return at_ >= text_.size() || !error_.empty(); }
  bool isAt(char c) const { return !ended() && text_[at_] == c; }
  std::uint32_t position() const { return static_cast<std::uint32_t>(pattern_.steps_.size()); }

  std::uint32_t add(Step step) {
    if (pattern_.steps_.size() >= kMostSteps) error_ = "too large";
    if (error_.empty()) pattern_.steps_.push_back(step);
    return position() - (error_.empty() ? 1U : 0U);
  }

  void insertAt(std::uint32_t where, Step step) {
    if (pattern_.steps_.size() >= kMostSteps) error_ = "too large";
    if (!error_.empty()) return;
    // Only steps behind `where` can lead to what is moved; they all belong to the same alternative.
    for (std::uint32_t i = where; i < position(); ++i) {
      ++pattern_.steps_[i].next;
      ++pattern_.steps_[i].other;
    }
    pattern_.steps_.insert(pattern_.steps_.begin() + where, step);
  }

  void addSet(const ByteSet& set) {
    pattern_.sets_.push_back(set);
    add({Step::Kind::bytes, static_cast<std::uint32_t>(pattern_.sets_.size() - 1), 0, 0});
  }

  void alternatives(int depth) {
    if (depth > kDeepest) {
      error_ = "nested too deeply";
      return;
    }
    const std::uint32_t begin = position();
    sequence(depth);
    if (!isAt('|')) return;
    ++at_;
    insertAt(begin, {Step::Kind::fork, 0, begin + 1, 0});
    const std::uint32_t jump = add({Step::Kind::jump, 0, 0, 0});
    setOther(begin, position());
    alternatives(depth + 1);
    if (error_.empty()) pattern_.steps_[jump].next = position();
  }

  void setOther(std::uint32_t step, std::uint32_t target) {
    if (error_.empty()) pattern_.steps_[step].other = target;
  }

  void sequence(int depth) {
    while (!ended() && !isAt('|') && !isAt(')')) repeated(depth);
  }

  void repeated(int depth) {
    const std::uint32_t begin = position();
    piece(depth);
    const auto bounds = readBounds();
    if (!bounds || !error_.empty()) return;
    if (isAt('*') || isAt('+') || isAt('?') || isAt('{')) {
      error_ = "repeated repetition";
      return;
    }
    const std::vector<Step> compiled(pattern_.steps_.begin() + begin, pattern_.steps_.end());
    pattern_.steps_.resize(begin);
    const auto again = [&] { appendCopy(compiled, begin); };
    for (unsigned i = 0; i < bounds->least && error_.empty(); ++i) again();
    if (bounds->most) return optionalCopies(*bounds->most - bounds->least, again);
    const std::uint32_t fork = add({Step::Kind::fork, 0, position() + 1, 0});
    again();
    add({Step::Kind::jump, 0, fork, 0});
    setOther(fork, position());
  }

  // `steps` were compiled to stand at `from`.
  void appendCopy(const std::vector<Step>& steps, std::uint32_t from) {
    const std::uint32_t to = position();
    for (Step step : steps) {
      step.next += to - from;
      step.other += to - from;
      add(step);
    }
  }

  template <class Again>
  void optionalCopies(unsigned count, const Again& again) {
    std::vector<std::uint32_t> forks;
    for (unsigned i = 0; i < count && error_.empty(); ++i) {
      forks.push_back(add({Step::Kind::fork, 0, position() + 1, 0}));
      again();
    }
    for (const std::uint32_t fork : forks) setOther(fork, position());
  }

  std::optional<Bounds> readBounds() {
    if (ended()) return std::nullopt;
    switch (text_[at_]) {
      case '*': ++at_; return Bounds{0, std::nullopt};
      case '+': ++at_; return Bounds{1, std::nullopt};
      case '?': ++at_; return Bounds{0, 1};
      case '{': ++at_; return braces();
      default: return std::nullopt;
    }
  }

  std::optional<Bounds> braces() {
    const auto least = decimal();
    Bounds bounds{least.value_or(0), least};
    if (isAt(',')) {
      ++at_;
      bounds.most = decimal();
    }
    if (!least || !isAt('}') || bounds.least > kMostRepeats || bounds.most.value_or(0) > kMostRepeats ||
        (bounds.most && *bounds.most < bounds.least)) {
      error_ = "malformed or too large repetition";
      return std::nullopt;
    }
    ++at_;
    return bounds;
  }

  std::optional<unsigned> decimal() {
    std::optional<unsigned> value;
    while (!ended() && std::isdigit(static_cast<unsigned char>(text_[at_])) != 0 &&
           value.value_or(0) <= kMostRepeats) {
      value = value.value_or(0) * 10 + static_cast<unsigned>(text_[at_++] - '0');
    }
    return value;
  }

  void piece(int depth) {
    const char c = text_[at_++];
    switch (c) {
      case '(':
        alternatives(depth + 1);
        if (!isAt(')') && error_.empty()) error_ = "unbalanced parenthesis";
        ++at_;
        return;
      case '^': add({Step::Kind::begin, 0, 0, 0}); return;
      case '$': add({Step::Kind::end, 0, 0, 0}); return;
      case '.': addSet(ByteSet().set()); return;
      case '[': bracket(); return;
      case '\\': escape(); return;
      case '*':
      case '+':
      case '?':
      case '{': error_ = "nothing to repeat"; return;
      default: addSet(ByteSet().set(indexOf(c))); return;
    }
  }

  void escape() {
    if (ended()) {
      error_ = "ends in a backslash";
    } else if (std::isdigit(static_cast<unsigned char>(text_[at_])) != 0) {
      error_ = "back references aren't supported";
    } else {
      addSet(ByteSet().set(indexOf(text_[at_++])));
    }
  }

  void bracket() {
    const bool negated = isAt('^');
    if (negated) ++at_;
    ByteSet set;
    for (bool first = true; first || !isAt(']'); first = false) {
      if (ended()) {
        if (error_.empty()) error_ = "unterminated bracket";
        return;
      }
      bracketItem(set);
    }
    ++at_;
    addSet(negated ? ~set : set);
  }

  void bracketItem(ByteSet& set) {
    if (text_.substr(at_).starts_with("[:")) return bracketClass(set);
    if (text_.substr(at_).starts_with("[.") || text_.substr(at_).starts_with("[=")) {
      error_ = "collation isn't supported";
      return;
    }
    const std::size_t low = indexOf(text_[at_++]);
    std::size_t high = low;
    if (isAt('-') && at_ + 1 < text_.size() && text_[at_ + 1] != ']') {
      high = indexOf(text_[at_ + 1]);
      at_ += 2;
    }
    if (high < low) error_ = "range is upside down";
    for (std::size_t i = low; i <= high; ++i) set.set(i);
  }

  void bracketClass(ByteSet& set) {
    const auto end = text_.find(":]", at_ + 2);
    const auto name =
        end == std::string_view::npos ? std::string_view() : text_.substr(at_ + 2, end - at_ - 2);
    const ByteSet before = set;
    for (int c = 0; c < 128; ++c) {
      if (isInClass(name, c)) set.set(static_cast<std::size_t>(c));
    }
    if (set == before) error_ = "unknown character class";
    at_ = end == std::string_view::npos ? text_.size() : end + 2;
  }

  std::string_view text_;
  std::size_t at_ = 0;
  std::string error_;
  Pattern pattern_;
};

// The set of steps that are alive between two bytes of the text.
class PatternRun {
 public:
  PatternRun(const Pattern& pattern, std::string_view text)
      : pattern_(&pattern), text_(text), seenAt_(pattern.steps_.size(), 0) {}

  bool matches() {
    for (std::size_t at = 0; at <= text_.size(); ++at) {
      if (follow(0, at)) return true;  // the match may begin anywhere
      if (at == text_.size()) return false;
      std::swap(alive_, before_);
      alive_.clear();
      for (const std::uint32_t step : before_) {
        const auto& set = pattern_->sets_[pattern_->steps_[step].set];
        if (set.test(indexOf(text_[at])) && follow(step + 1, at + 1)) return true;
      }
    }
    return false;
  }

 private:
  // Adds what is reached from `first` without taking a byte; true when that includes the end.
  bool follow(std::uint32_t first, std::size_t at) {
    pending_.assign(1, first);
    while (!pending_.empty()) {
      const std::uint32_t step = pending_.back();
      pending_.pop_back();
      if (seenAt_[step] == at + 1) continue;
      seenAt_[step] = at + 1;
      const Pattern::Step& what = pattern_->steps_[step];
      using Kind = Pattern::Step::Kind;
      if (what.kind == Kind::accept) return true;
      if (what.kind == Kind::bytes) alive_.push_back(step);
      if (what.kind == Kind::jump || what.kind == Kind::fork) pending_.push_back(what.next);
      if (what.kind == Kind::fork) pending_.push_back(what.other);
      if (what.kind == Kind::begin && at == 0) pending_.push_back(step + 1);
      if (what.kind == Kind::end && at == text_.size()) pending_.push_back(step + 1);
    }
    return false;
  }

  const Pattern* pattern_;
  std::string_view text_;
  std::vector<std::size_t> seenAt_;
  std::vector<std::uint32_t> alive_;
  std::vector<std::uint32_t> before_;
  std::vector<std::uint32_t> pending_;
};

Outcome<Pattern> Pattern::compile(std::string_view expression) {
  return PatternCompiler(expression).compile();
}

bool Pattern::matches(std::string_view text) const {
  return PatternRun(*this, text).matches();
}

}  // namespace lab
