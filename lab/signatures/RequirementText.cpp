#include "RequirementText.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <utility>

#include "Base/Text.h"

namespace lab {

namespace {

constexpr std::size_t kLongestText = 65536;
constexpr int kDeepestParenthesis = 64;

struct Token {
  enum class Kind { word, quoted, hash, symbol, end };
  Kind kind = Kind::end;
  std::string text;
};

bool isLetterOrDigit(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0;
}

bool isWordCharacter(char c) {
  return isLetterOrDigit(c) || c == '_';
}

class Lexer {
 public:
  explicit Lexer(std::string_view text) : text_(text) {}

  Outcome<std::vector<Token>> tokens() {
    std::vector<Token> all;
    while (true) {
      if (auto skipped = skipBlanks(); !skipped) return handOn(skipped);
      if (text_.empty()) break;
      auto token = next();
      if (!token) return handOn(token);
      all.push_back(std::move(*token));
    }
    all.emplace_back();
    return all;
  }

 private:
  Outcome<void> skipBlanks() {
    while (!text_.empty()) {
      if (std::isspace(static_cast<unsigned char>(text_.front())) != 0) {
        text_.remove_prefix(1);
      } else if (text_.starts_with("/*")) {
        const auto end = text_.find("*/", 2);
        if (end == std::string_view::npos) return refuse("unterminated comment");
        text_.remove_prefix(end + 2);
      } else if (text_.starts_with("//") || text_.starts_with('#')) {
        text_.remove_prefix(std::min(text_.find('\n'), text_.size()));
      } else {
        return {};
      }
    }
    return {};
  }

  Outcome<Token> next() {
    if (text_.front() == '"') return quoted();
    if (text_.starts_with("H\"") || text_.starts_with("h\"")) return hash();
    if (isWordCharacter(text_.front())) return word();
    for (const std::string_view symbol :
         {"&&", "||", "==", "<=", ">=", "=", "<", ">", "!", "(", ")", "[", "]", "*", "-"}) {
      if (!text_.starts_with(symbol)) continue;
      text_.remove_prefix(symbol.size());
      return Token{Token::Kind::symbol, std::string(symbol)};
    }
    return refuse("unexpected character \"{}\"", printable(text_.substr(0, 1)));
  }

  Outcome<Token> quoted() {
    std::string value;
    for (std::size_t i = 1; i < text_.size(); ++i) {
      char c = text_[i];
      if (c == '"') {
        text_.remove_prefix(i + 1);
        return Token{Token::Kind::quoted, value};
      }
      if (c == '\\' && ++i < text_.size()) c = text_[i];
      value += c;
    }
    return refuse("unterminated string");
  }

  Outcome<Token> hash() {
    const auto end = text_.find('"', 2);
    if (end == std::string_view::npos) return refuse("unterminated hash");
    Token token{Token::Kind::hash, std::string(text_.substr(2, end - 2))};
    text_.remove_prefix(end + 1);
    return token;
  }

  // Words joined by single dots.
  Outcome<Token> word() {
    std::size_t length = 0;
    while (length < text_.size()) {
      const bool isInnerDot =
          text_[length] == '.' && length + 1 < text_.size() && isWordCharacter(text_[length + 1]);
      if (!isWordCharacter(text_[length]) && !isInnerDot) break;
      ++length;
    }
    Token token{Token::Kind::word, std::string(text_.substr(0, length))};
    text_.remove_prefix(length);
    return token;
  }

  std::string_view text_;
};

class Parser {
 public:
  explicit Parser(std::vector<Token> tokens) : tokens_(std::move(tokens)) {}

  Outcome<Requirement> parse() {
    auto requirement = disjunction(0);
    if (requirement && current().kind != Token::Kind::end) return unexpected();
    return requirement;
  }

 private:
  const Token& current() const { return tokens_[at_]; }

  bool isSymbol(std::string_view text) const {
    return current().kind == Token::Kind::symbol && current().text == text;
  }

  bool isWord(std::string_view text) const {
    return current().kind == Token::Kind::word && current().text == text;
  }

  bool take(std::string_view text) {
    if (!isSymbol(text) && !isWord(text)) return false;
    ++at_;
    return true;
  }

  std::unexpected<Failure> unexpected() const {
    if (current().kind == Token::Kind::end) return refuse("the requirement ends too early");
    return refuse("unexpected \"{}\"", printable(current().text));
  }

  Outcome<Requirement> disjunction(int depth) {
    return list(depth, Requirement::Kind::disjunction, "or", "||", &Parser::conjunction);
  }

  Outcome<Requirement> conjunction(int depth) {
    return list(depth, Requirement::Kind::conjunction, "and", "&&", &Parser::negation);
  }

  Outcome<Requirement> list(int depth, Requirement::Kind kind, std::string_view word, std::string_view symbol,
                            Outcome<Requirement> (Parser::*operand)(int)) {
    auto first = (this->*operand)(depth);
    if (!first || (!isWord(word) && !isSymbol(symbol))) return first;
    Requirement all;
    all.kind = kind;
    all.operands.push_back(std::move(*first));
    while (take(word) || take(symbol)) {
      auto next = (this->*operand)(depth);
      if (!next) return handOn(next);
      all.operands.push_back(std::move(*next));
    }
    return all;
  }

  Outcome<Requirement> negation(int depth) {
    if (depth > kDeepestParenthesis) return refuse("the requirement is nested too deeply");
    if (!take("!") && !take("not")) return primary(depth);
    auto operand = negation(depth + 1);
    if (!operand) return handOn(operand);
    Requirement negated;
    negated.kind = Requirement::Kind::negation;
    negated.operands.push_back(std::move(*operand));
    return negated;
  }

  Outcome<Requirement> primary(int depth) {
    if (take("(")) {
      auto inner = disjunction(depth + 1);
      if (inner && !take(")")) return unexpected();
      return inner;
    }
    if (take("always") || take("true")) return simple(Requirement::Kind::always);
    if (take("never") || take("false")) return simple(Requirement::Kind::never);
    if (take("identifier")) return identifier();
    if (take("cdhash")) return cdhash();
    if (take("anchor")) return anchor();
    if (take("certificate") || take("cert")) return certificate();
    if (take("info")) return keyed(Requirement::Kind::info);
    if (take("entitlement")) return keyed(Requirement::Kind::entitlement);
    for (const char* word : {"notarized", "legacy", "platform"}) {
      if (isWord(word)) return notJudgeable(word);
    }
    return unexpected();
  }

  static Requirement simple(Requirement::Kind kind) {
    Requirement requirement;
    requirement.kind = kind;
    return requirement;
  }

  Outcome<Requirement> notJudgeable(const std::string& what) {
    ++at_;
    if (what == "platform" && take("=")) ++at_;
    Requirement requirement = simple(Requirement::Kind::notJudgeable);
    requirement.text = what;
    if (at_ >= tokens_.size()) return refuse("the requirement ends too early");
    return requirement;
  }

  bool takeEquals() { return take("=") || take("=="); }

  Outcome<std::string> value() {
    if (current().kind != Token::Kind::word && current().kind != Token::Kind::quoted) return unexpected();
    const Token& token = tokens_[at_++];
    if (token.kind == Token::Kind::quoted || !token.text.starts_with("0x")) return token.text;
    const auto bytes = fromHex(std::string_view(token.text).substr(2));
    if (!bytes || bytes->empty()) return refuse("malformed hexadecimal value \"{}\"", printable(token.text));
    return textOf(*bytes);
  }

  Outcome<Bytes> hash() {
    if (current().kind != Token::Kind::hash) return unexpected();
    const auto bytes = fromHex(current().text);
    if (!bytes || bytes->size() != 20) return refuse("a hash must be 40 hexadecimal digits");
    ++at_;
    return *bytes;
  }

  Outcome<Requirement> identifier() {
    takeEquals();
    auto text = value();
    if (!text) return handOn(text);
    Requirement requirement = simple(Requirement::Kind::identifier);
    requirement.text = *text;
    return requirement;
  }

  Outcome<Requirement> cdhash() {
    takeEquals();
    auto bytes = hash();
    if (!bytes) return handOn(bytes);
    Requirement requirement = simple(Requirement::Kind::cdhash);
    requirement.hash = *bytes;
    return requirement;
  }

  Outcome<Requirement> anchor() {
    if (take("apple"))
      return simple(take("generic") ? Requirement::Kind::anchorAppleGeneric : Requirement::Kind::anchorApple);
    return aboutCertificate(kRootSlot);
  }

  Outcome<Requirement> certificate() {
    if (take("leaf")) return aboutCertificate(kLeafSlot);
    if (take("root") || take("anchor")) return aboutCertificate(kRootSlot);
    const bool negative = take("-");
    if (current().kind != Token::Kind::word) return unexpected();
    const auto slot = installer::wholeNumber<std::int32_t>(current().text);
    if (!slot || *slot > 100) return unexpected();
    ++at_;
    return aboutCertificate(negative ? -*slot : *slot);
  }

  Outcome<Requirement> aboutCertificate(std::int32_t slot) {
    Requirement requirement;
    requirement.slot = slot;
    if (take("trusted")) {
      requirement.kind = Requirement::Kind::notJudgeable;
      requirement.text = "trusted";
      return requirement;
    }
    if (takeEquals()) {
      auto bytes = hash();
      if (!bytes) return handOn(bytes);
      requirement.kind = Requirement::Kind::certificateHash;
      requirement.hash = *bytes;
      return requirement;
    }
    auto keyed = bracketed(std::move(requirement));
    if (!keyed) return handOn(keyed);
    if (keyed->text.starts_with("field.")) {
      keyed->kind = Requirement::Kind::certificateExtension;
      keyed->text.erase(0, 6);
      return keyed;
    }
    if (!keyed->text.starts_with("subject."))
      return refuse("unknown certificate field \"{}\"", printable(keyed->text));
    keyed->kind = Requirement::Kind::certificateField;
    return keyed;
  }

  Outcome<Requirement> keyed(Requirement::Kind kind) { return bracketed(simple(kind)); }

  // Reads [key] and the match after it.
  Outcome<Requirement> bracketed(Requirement requirement) {
    if (!take("[")) return unexpected();
    auto key = value();
    if (!key) return handOn(key);
    if (!take("]")) return unexpected();
    requirement.text = std::move(*key);
    auto match = matchBehind();
    if (!match) return handOn(match);
    requirement.match = std::move(*match);
    return requirement;
  }

  Outcome<Match> matchBehind() {
    if (take("exists")) return Match{};
    if (take("absent")) return Match{MatchKind::absent, {}};
    static constexpr std::pair<std::string_view, MatchKind> kOrders[] = {{"<=", MatchKind::lessEqual},
                                                                         {">=", MatchKind::greaterEqual},
                                                                         {"<", MatchKind::less},
                                                                         {">", MatchKind::greater}};
    for (const auto& [symbol, kind] : kOrders) {
      if (!take(symbol)) continue;
      auto bound = value();
      if (!bound) return handOn(bound);
      return Match{kind, *bound};
    }
    if (!takeEquals()) return Match{};
    const bool before = take("*");
    auto text = value();
    if (!text) return handOn(text);
    const bool behind = take("*");
    if (before && behind) return Match{MatchKind::contains, *text};
    if (before) return Match{MatchKind::endsWith, *text};
    if (behind) return Match{MatchKind::beginsWith, *text};
    return Match{MatchKind::equal, *text};
  }

  std::vector<Token> tokens_;
  std::size_t at_ = 0;
};

}  // namespace

Outcome<Requirement> parseRequirement(std::string_view text) {
  if (text.size() > kLongestText) return refuse("the requirement is too long");
  auto tokens = Lexer(text).tokens();
  if (!tokens) return handOn(tokens);
  return Parser(std::move(*tokens)).parse();
}

}  // namespace lab
