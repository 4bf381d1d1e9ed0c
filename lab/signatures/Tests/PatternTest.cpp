#include <gtest/gtest.h>

#include "Pattern.h"

namespace lab {
namespace {

struct Row {
  const char* expression;
  const char* text;
  bool matches;
};

class PatternRows : public testing::TestWithParam<Row> {};

TEST_P(PatternRows, Match) {
  const auto pattern = Pattern::compile(GetParam().expression);
  ASSERT_TRUE(pattern) << pattern.error().reason;
  EXPECT_EQ(pattern->matches(GetParam().text), GetParam().matches)
      << GetParam().expression << " on " << GetParam().text;
}

constexpr const char* kCodePlaces =
    "^(Frameworks|SharedFrameworks|PlugIns|Plug-ins|XPCServices|Helpers|MacOS|Library/"
    "(Automator|Spotlight|LoginItems))/";

INSTANTIATE_TEST_SUITE_P(
    Rules, PatternRows,
    testing::Values(Row{"^.*", "anything", true}, Row{"^.*", "", true}, Row{"^[^/]+$", "one", true},
                    Row{"^[^/]+$", "one/two", false}, Row{"^Info\\.plist$", "Info.plist", true},
                    Row{"^Info\\.plist$", "InfoXplist", false}, Row{"^Info\\.plist$", "a/Info.plist", false},
                    Row{"^(.*/)?\\.DS_Store$", ".DS_Store", true},
                    Row{"^(.*/)?\\.DS_Store$", "a/b/.DS_Store", true},
                    Row{"^(.*/)?\\.DS_Store$", "a.DS_Store", false}, Row{".*\\.dSYM($|/)", "a/b.dSYM", true},
                    Row{".*\\.dSYM($|/)", "b.dSYM/c", true}, Row{".*\\.dSYM($|/)", "b.dSYMx", false},
                    Row{kCodePlaces, "Frameworks/A", true}, Row{kCodePlaces, "Library/Spotlight/B", true},
                    Row{kCodePlaces, "Library/B", false}, Row{kCodePlaces, "MacOS/x", true},
                    Row{kCodePlaces, "Resources/MacOS/x", false},
                    Row{"^Resources/.*\\.lproj/locversion.plist$", "Resources/en.lproj/locversion.plist",
                        true}));

INSTANTIATE_TEST_SUITE_P(
    Language, PatternRows,
    testing::Values(
        Row{"b", "abc", true}, Row{"^b", "abc", false}, Row{"c$", "abc", true}, Row{"^a*$", "aaa", true},
        Row{"^a*b|c$", "xc", true}, Row{"^(a*|b)c$", "aaac", true}, Row{"^(a*|b)c$", "bc", true},
        Row{"^(a*|b)c$", "abc", false}, Row{"^(a|b*|c)+$", "abbc", true}, Row{"^a{2,3}$", "a", false},
        Row{"^a{2,3}$", "aaa", true}, Row{"^a{2,3}$", "aaaa", false}, Row{"^a{2}$", "aa", true},
        Row{"^a{2,}$", "aaaaaa", true}, Row{"^a{2,}$", "a", false}, Row{"^(ab){2}$", "abab", true},
        Row{"^(a|b){2}c$", "abc", true}, Row{"^(a?){3}$", "aa", true}, Row{"^[a-c]+$", "abc", true},
        Row{"^[a-c]+$", "abd", false}, Row{"^[]a]$", "]", true}, Row{"^[^]a]$", "b", true},
        Row{"^[a-]$", "-", true}, Row{"^[[:digit:]]+$", "123", true}, Row{"^[[:alpha:]_]+$", "a_b", true},
        Row{"^x(y|)$", "x", true}, Row{"^\\(a\\)$", "(a)", true}, Row{"^(a(b(c)?)?)?$", "abc", true},
        Row{"^()$", "", true}, Row{"^((a|b)*c|d)+$", "abcdbc", true}, Row{"^((a|b)*c|d)+$", "abcdb", false},
        Row{"a{0}b", "b", true}, Row{"^[\\.]$", "\\", true}, Row{"^[\\d]$", "1", false},
        Row{"^\\d$", "d", true}, Row{"^a.b$", "a\nb", true}, Row{"^a$", "a\n", false}, Row{"b", "a\nb", true},
        Row{"^b", "a\nb", false}, Row{"^.$", "\u00e9", false}));

TEST(Pattern, RefusesWhatIsMalformedOrUnbounded) {
  const std::string nested = std::string(100, '(') + "a" + std::string(100, ')');
  const std::vector<std::string> expressions{"(",
                                             ")",
                                             "a)",
                                             "[a",
                                             "a{",
                                             "a{x}",
                                             "a{3,2}",
                                             "a{1,999}",
                                             "*a",
                                             "a**",
                                             "(a)\\1",
                                             "\\",
                                             "[b-a]",
                                             "[[:nope:]]",
                                             "[[.a.]]",
                                             "((a{255}){255}){255}",
                                             std::string(5000, 'a'),
                                             nested};
  for (const std::string& expression : expressions)
    EXPECT_FALSE(Pattern::compile(expression)) << expression.substr(0, 40);
}

TEST(Pattern, DoesntBacktrack) {
  // Each of these takes a backtracking matcher longer than anybody's life.
  const std::string text(2000, 'a');
  for (const char* expression :
       {"^(a*)*$x", "^(a|aa)+$x", "^(a|a)*b$", "^(a?){100}a{100}b", "(.*)*x$", "((a*)*)*b"}) {
    const auto pattern = Pattern::compile(expression);
    ASSERT_TRUE(pattern) << expression;
    EXPECT_FALSE(pattern->matches(text)) << expression;
  }
}

TEST(Pattern, CompilesNestedRepetitionsWithoutDoubling) {
  std::string expression = "a";
  for (int i = 0; i < 25; ++i) expression = "(" + expression + ")?";
  const auto pattern = Pattern::compile(expression);
  ASSERT_TRUE(pattern) << pattern.error().reason;
  EXPECT_TRUE(pattern->matches("a"));
}

}  // namespace
}  // namespace lab
