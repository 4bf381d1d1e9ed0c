#include "Pattern.h"

#include <cctype>
#include <re2/re2.h>

#include "Base/Text.h"
#include "Bytes.h"

namespace lab {

namespace {

constexpr int kMostStates = 4000;
constexpr std::size_t kLongestPattern = 1024;
constexpr int kDeepestGroup = 32;
constexpr unsigned kMostRepeats = 255;

// Translates an expression for RE2. Refuses syntax with another meaning in RE2 than in POSIX, and excessive
// sizes. RE2 checks the rest of the syntax.
class Translation {
 public:
  explicit Translation(std::string_view text) : text_(text) {}

  Outcome<std::string> run() {
    bool isRepeated = false;
    while (!text_.empty()) {
      const char c = take();
      const bool repeats = c == '*' || c == '+' || c == '?' || c == '{';
      if (repeats && isRepeated) return refuse("repeated repetition");
      isRepeated = repeats;
      depth_ += c == '(' ? 1 : c == ')' ? -1 : 0;
      if (depth_ > kDeepestGroup) return refuse("nested too deeply");
      if (c == '{' && !braces()) return refuse("malformed or too large repetition");
      if (c == '[' && !bracket()) return refuse("malformed bracket");
      if (c == '\\' && !escape()) return refuse("malformed escape");
    }
    return std::move(out_);
  }

 private:
  char take() {
    const char c = text_.front();
    text_.remove_prefix(1);
    if (c != '\\') out_ += c;
    return c;
  }

  void takeAll(std::size_t count) {
    out_ += text_.substr(0, count);
    text_.remove_prefix(count);
  }

  // "2}", "2,}", "2,3}"
  bool braces() {
    const std::size_t end = text_.find('}');
    if (end == std::string_view::npos) return false;
    const std::string_view bounds = text_.substr(0, end);
    const std::size_t comma = std::min(bounds.find(','), bounds.size());
    const bool isOpen = comma + 1 >= bounds.size();
    if (!isCount(bounds.substr(0, comma)) || !(isOpen || isCount(bounds.substr(comma + 1)))) return false;
    takeAll(end + 1);
    return true;
  }

  static bool isCount(std::string_view digits) {
    return installer::wholeNumber<unsigned>(digits).value_or(kMostRepeats + 1) <= kMostRepeats;
  }

  // In brackets a backslash is an ordinary character.
  bool bracket() {
    if (text_.starts_with('^')) take();
    for (bool first = true; first || !text_.starts_with(']'); first = false) {
      if (text_.empty() || text_.starts_with("[.") || text_.starts_with("[=")) return false;
      const std::size_t end = text_.starts_with("[:") ? text_.find(":]", 2) : std::string_view::npos;
      if (end != std::string_view::npos) takeAll(end + 2);
      if (end == std::string_view::npos && take() == '\\') out_ += "\\\\";
    }
    take();
    return true;
  }

  // A letter after a backslash means itself. A digit is refused: it would be a back reference.
  bool escape() {
    if (text_.empty() || std::isdigit(static_cast<unsigned char>(text_.front())) != 0) return false;
    if (std::ispunct(static_cast<unsigned char>(text_.front())) != 0) out_ += '\\';
    takeAll(1);
    return true;
  }

  std::string_view text_;
  std::string out_;
  int depth_ = 0;
};

RE2::Options options() {
  RE2::Options options(RE2::POSIX);
  options.set_encoding(RE2::Options::EncodingLatin1);
  options.set_dot_nl(true);
  options.set_one_line(true);
  options.set_never_capture(true);
  options.set_log_errors(false);
  return options;
}

}  // namespace

Outcome<Pattern> Pattern::compile(std::string_view expression) {
  if (expression.size() > kLongestPattern) return refuse("regular expression is too long");
  const auto where = fmt::format("regular expression \"{}\"", printable(expression));
  const auto translated = Translation(expression).run();
  if (!translated) return handOn(translated, where);
  auto compiled = std::make_shared<const RE2>(*translated, options());
  if (!compiled->ok()) return refuse("{}: {}", where, compiled->error());
  if (compiled->ProgramSize() > kMostStates) return refuse("{}: too large", where);
  return Pattern(std::move(compiled));
}

bool Pattern::matches(std::string_view text) const {
  return RE2::PartialMatch(re2::StringPiece(text.data(), text.size()), *expression_);
}

std::size_t Pattern::size() const {
  return static_cast<std::size_t>(expression_->ProgramSize());
}

}  // namespace lab
