#include "JSONLaws.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "Base/Text.h"
#include "Targets.h"

namespace installer::test {

namespace {

// A second implementation of JSON's grammar, by recursive descent. Only accepts or refuses; makes no values.
class Grammar {
 public:
  explicit Grammar(std::string_view text) : rest_{text} {}

  // True for an object or an array with nothing after it.
  bool isText() {
    (void)take("\xEF\xBB\xBF");
    skipBlanks();
    const bool isStructured = rest_.starts_with('{') || rest_.starts_with('[');
    return isStructured && takeValue(0) && rest_.empty();
  }

 private:
  std::string_view rest_;

  bool take(std::string_view piece) {
    if (!rest_.starts_with(piece)) return false;
    rest_.remove_prefix(piece.size());
    return true;
  }

  // Takes characters of `set`, at most `most`, and returns their number.
  std::size_t takeAll(std::string_view set, std::size_t most = std::string_view::npos) {
    const auto count = std::min({rest_.find_first_not_of(set), rest_.size(), most});
    rest_.remove_prefix(count);
    return count;
  }

  void skipBlanks() { takeAll(" \t\r\n"); }

  bool takeValue(std::size_t depth) {
    skipBlanks();
    const bool taken = takeBareValue(depth);
    skipBlanks();
    return taken;
  }

  bool takeBareValue(std::size_t depth) {
    if (take("[")) return takeRest(']', depth + 1, [&] { return takeValue(depth + 1); });
    if (take("{")) return takeRest('}', depth + 1, [&] { return takeMember(depth + 1); });
    if (rest_.starts_with('"')) return takeString();
    return take("true") || take("false") || take("null") || takeNumber();
  }

  // Takes the rest of an array or an object after its opening bracket.
  bool takeRest(char close, std::size_t depth, auto&& takeItem) {
    if (depth > JSONReader::kMaximumDepth) return false;
    skipBlanks();
    if (take({&close, 1})) return true;
    while (takeItem()) {
      if (take({&close, 1})) return true;
      if (!take(",")) return false;
    }
    return false;
  }

  bool takeMember(std::size_t depth) {
    skipBlanks();
    if (!takeString()) return false;
    skipBlanks();
    return take(":") && takeValue(depth);
  }

  bool takeString() {
    if (!take("\"")) return false;
    while (!rest_.empty()) {
      if (take("\"")) return true;
      if (static_cast<unsigned char>(rest_.front()) < 0x20) return false;
      if (take("\\")) {
        if (takeAll("\"\\/bfnrt", 1) == 1) continue;
        if (!take("u") || takeAll("0123456789abcdefABCDEF", 4) != 4) return false;
        continue;
      }
      const auto length = characterLength(rest_);
      if (length == 0) return false;
      rest_.remove_prefix(length);
    }
    return false;
  }

  bool takeNumber() {
    constexpr std::string_view digits = "0123456789";
    (void)take("-");
    if (!take("0") && takeAll(digits) == 0) return false;
    if (take(".") && takeAll(digits) == 0) return false;
    if (takeAll("eE", 1) == 0) return true;
    takeAll("+-", 1);
    return takeAll(digits) > 0;
  }
};

}  // namespace

Json readJSON(std::string_view text) {
  const auto json = JSONReader::parse(text);
  require(json.has_value() == Grammar{text}.isText(), "exactly what the grammar allows is read");
  if (!json) return nullptr;
  require(JSONReader::parse(json->dump()).value_or(nullptr) == *json,
          "what was read and is written again reads the same");
  const auto strict = JSONReader::parse(text, JSONReader::BadValues::refuse);
  require(!strict || *strict == *json, "without bad values both ways of reading see the same");
  return *json;
}

std::string withMember(std::string_view text, const std::string& key, std::string_view value) {
  const auto end = text.rfind('}');
  const auto comma = text.substr(0, end).find_last_not_of(" \t\r\n");
  std::string spoiled{text.substr(0, end)};
  if (text[comma] != '{') spoiled += ',';
  return spoiled + Json(key).dump() + ':' + std::string{value} + '}';
}

std::string_view badValue(std::string_view text) {
  static constexpr std::array kBad{"null", "0.5", "1e999", R"("\udc00")", R"([{"a":[]}])"};
  return kBad.at(text.size() % kBad.size());
}

}  // namespace installer::test
