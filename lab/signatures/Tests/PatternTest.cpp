#include <gtest/gtest.h>

#include "Pattern.h"

namespace lab {
namespace {

struct PatternRow {
  const char* expression;
  const char* text;
  bool matches;
};

class PatternRows : public testing::TestWithParam<PatternRow> {};

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
    testing::Values(
        PatternRow{"^.*", "anything", true}, PatternRow{"^.*", "", true}, PatternRow{"^[^/]+$", "one", true},
        PatternRow{"^[^/]+$", "one/two", false}, PatternRow{"^Info\\.plist$", "Info.plist", true},
        PatternRow{"^Info\\.plist$", "InfoXplist", false},
        PatternRow{"^Info\\.plist$", "a/Info.plist", false},
        PatternRow{"^(.*/)?\\.DS_Store$", ".DS_Store", true},
        PatternRow{"^(.*/)?\\.DS_Store$", "a/b/.DS_Store", true},
        PatternRow{"^(.*/)?\\.DS_Store$", "a.DS_Store", false},
        PatternRow{".*\\.dSYM($|/)", "a/b.dSYM", true}, PatternRow{".*\\.dSYM($|/)", "b.dSYM/c", true},
        PatternRow{".*\\.dSYM($|/)", "b.dSYMx", false}, PatternRow{kCodePlaces, "Frameworks/A", true},
        PatternRow{kCodePlaces, "Library/Spotlight/B", true}, PatternRow{kCodePlaces, "Library/B", false},
        PatternRow{kCodePlaces, "MacOS/x", true}, PatternRow{kCodePlaces, "Resources/MacOS/x", false},
        PatternRow{"^Resources/.*\\.lproj/locversion.plist$", "Resources/en.lproj/locversion.plist", true}));

INSTANTIATE_TEST_SUITE_P(
    Language, PatternRows,
    testing::Values(PatternRow{"b", "abc", true}, PatternRow{"^b", "abc", false},
                    PatternRow{"c$", "abc", true}, PatternRow{"^a*$", "aaa", true},
                    PatternRow{"^a*b|c$", "xc", true}, PatternRow{"^(a*|b)c$", "aaac", true},
                    PatternRow{"^(a*|b)c$", "bc", true}, PatternRow{"^(a*|b)c$", "abc", false},
                    PatternRow{"^(a|b*|c)+$", "abbc", true}, PatternRow{"^a{2,3}$", "a", false},
                    PatternRow{"^a{2,3}$", "aaa", true}, PatternRow{"^a{2,3}$", "aaaa", false},
                    PatternRow{"^a{2}$", "aa", true}, PatternRow{"^a{2,}$", "aaaaaa", true},
                    PatternRow{"^a{2,}$", "a", false}, PatternRow{"^(ab){2}$", "abab", true},
                    PatternRow{"^(a|b){2}c$", "abc", true}, PatternRow{"^(a?){3}$", "aa", true},
                    PatternRow{"^[a-c]+$", "abc", true}, PatternRow{"^[a-c]+$", "abd", false},
                    PatternRow{"^[]a]$", "]", true}, PatternRow{"^[^]a]$", "b", true},
                    PatternRow{"^[a-]$", "-", true}, PatternRow{"^[[:digit:]]+$", "123", true},
                    PatternRow{"^[[:alpha:]_]+$", "a_b", true}, PatternRow{"^x(y|)$", "x", true},
                    PatternRow{"^\\(a\\)$", "(a)", true}, PatternRow{"^(a(b(c)?)?)?$", "abc", true},
                    PatternRow{"^()$", "", true}, PatternRow{"^((a|b)*c|d)+$", "abcdbc", true},
                    PatternRow{"^((a|b)*c|d)+$", "abcdb", false}, PatternRow{"a{0}b", "b", true},
                    PatternRow{"^[\\.]$", "\\", true}, PatternRow{"^[\\d]$", "1", false},
                    PatternRow{"^\\d$", "d", true}, PatternRow{"^a.b$", "a\nb", true},
                    PatternRow{"^a$", "a\n", false}, PatternRow{"b", "a\nb", true},
                    PatternRow{"^b", "a\nb", false}, PatternRow{"^.$", "\u00e9", false}));

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
  // A backtracking matcher takes exponential time for each of these.
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
