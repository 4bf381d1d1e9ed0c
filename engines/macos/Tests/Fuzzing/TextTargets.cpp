// Version strings, compared with a naive model, and shell words, read by the real /bin/sh.
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "Installer/PrivilegedRunner.h"
#include "Platform/Linux/Processes/PrivilegedShell.h"
#include "Targets.h"
#include "Utils/VersionComparison.h"

namespace installer::test {

namespace {

// The pieces between the separators, also empty ones.
std::vector<std::string> pieces(std::string_view text, char separator) {
  std::vector<std::string> all{""};
  for (const char c : text) {
    if (c == separator) {
      all.emplace_back();
    } else {
      all.back() += c;
    }
  }
  return all;
}

// A component as its sign and its digits without leading zeros, without a limit of an integer type.
struct NaiveNumber {
  bool isNegative = false;
  std::string digits;

  explicit NaiveNumber(std::string text) {
    const bool isSigned = text.starts_with('+') || text.starts_with('-');
    const bool isBelow = text.starts_with('-');
    if (isSigned) text.erase(0, 1);
    if (text.find_first_not_of("0123456789") != std::string::npos) return;
    text.erase(0, std::min(text.find_first_not_of('0'), text.size()));
    const std::string largest = isBelow ? "9223372036854775808" : "9223372036854775807";
    if (isShorterOrBelow(largest, text)) return;
    isNegative = isBelow && !text.empty();
    digits = text;
  }

  static bool isShorterOrBelow(const std::string& a, const std::string& b) {
    return std::pair{a.size(), a} < std::pair{b.size(), b};
  }
  bool operator<(const NaiveNumber& other) const {
    if (isNegative != other.isNegative) return isNegative;
    return isNegative ? isShorterOrBelow(other.digits, digits) : isShorterOrBelow(digits, other.digits);
  }
};

ComparisonResult naiveComparison(std::string_view version, std::string_view to) {
  const auto left = pieces(version, '.');
  const auto right = pieces(to, '.');
  for (std::size_t i = 0; i < std::min(left.size(), right.size()); ++i) {
    if (NaiveNumber{left[i]} < NaiveNumber{right[i]}) return ComparisonResult::ascending;
    if (NaiveNumber{right[i]} < NaiveNumber{left[i]}) return ComparisonResult::descending;
  }
  return ComparisonResult::same;
}

void requireLaws(const std::string& a, const std::string& b) {
  using enum ComparisonResult;
  const auto result = compareVersion(a, b);
  require(result == naiveComparison(a, b), "it is the result of the naive model");
  require(std::to_underlying(compareVersion(b, a)) == -std::to_underlying(result),
          "the other way round it is the opposite");
  require(compareVersion(a, a) == same, "a version is the same as itself");
  require(compareVersion(a, a + "." + b) == same, "components beyond the shorter version play no part");
  require(compareVersion(a + "." + b, a + "." + a) == compareVersion(b, a),
          "behind an equal beginning the rest decides");
}

}  // namespace

void fuzzVersionComparison(std::string_view text) {
  using enum ComparisonResult;
  auto versions = pieces(text, '\n');
  versions.resize(std::max<std::size_t>(versions.size(), 3));
  const auto& a = versions[0];
  const auto& b = versions[1];
  const auto& c = versions[2];
  for (const auto& [left, right] : {std::pair{a, b}, std::pair{b, c}, std::pair{a, c}})
    requireLaws(left, right);
  // "The same" isn't transitive: "1.1" and "1.2" are both the same as "1".
  if (compareVersion(a, b) == ascending && compareVersion(b, c) == ascending) {
    require(compareVersion(a, c) == ascending, "older than an older one is older");
  }
}

namespace {

// The argument that /bin/sh reads from `word`, through the shell that runs an administrator's commands.
std::string readByShell(const std::string& word) {
  // A new shell each time, because the fuzzer traces comparisons and finds the token of the shell's own
  // lines.
  PrivilegedShell shell{{.command = {}, .askpass = {}}};
  const auto failure = shell.run("set -- " + word + "; printf '%d %s.' $# \"$1\"; exit 3");
  require(failure && failure->number == 3, "the command ends by itself");
  return failure->message;
}

}  // namespace

void fuzzShellQuoting(std::string_view text) {
  std::string word{text};
  std::erase(word, '\0');  // an argument can't contain NUL
  require(readByShell(shellQuoted(word)) == "1 " + word + ".",
          "the word that comes back is the one that went in");
  const auto program = "/" + word;
  require(readByShell(shellProgram(program)) == "1 " + program + ".", "so is a program's path");
}

}  // namespace installer::test
