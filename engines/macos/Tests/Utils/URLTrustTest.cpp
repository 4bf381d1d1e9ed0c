#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/SimulatedMachine.h"
#include "Utils/URLTrust.h"

namespace installer {
namespace {

using Domains = std::vector<std::string>;

URL parsed(const std::string& text) {
  const auto url = URL::parse(text);
  EXPECT_TRUE(url) << text;
  return url.value_or(URL{});
}

struct TrustRow {
  std::string url;
  Domains domains;
  bool isTrusted;
};

TEST(URLTrust, TrustsHTTPSOnANamedHostOrBelowIt) {
  const Domains kelo{"kelo.example"};
  const std::vector<TrustRow> rows{
      {"https://kelo.example/a", kelo, true},
      {"https://cdn.kelo.example/a", kelo, true},
      {"https://a.b.kelo.example/a", kelo, true},
      {"https://KELO.Example./a", kelo, true},
      {"https://kelo.example../a", kelo, true},
      {"HTTPS://kelo.example/a", kelo, true},
      {"https://kelo.example:8443/a", kelo, true},
      {"https://someone@kelo.example/a", kelo, true},
      {"https://kelo.example/a", {" \tKELO.example.. "}, true},
      {"https://kelo.example/a", {"other.example", "kelo.example"}, true},
      {"https://kelo.example/a", {"...", "kelo.example"}, true},

      {"http://kelo.example/a", kelo, false},
      {"http://kelo.example/a", {}, false},
      {"ftp://kelo.example/a", kelo, false},
      {"//kelo.example/a", kelo, false},
      {"kelo.example/a", kelo, false},
      {"https:///a", kelo, false},
      {"https://.../a", kelo, false},
      {"https://evilkelo.example/a", kelo, false},
      {"https://kelo.example.evil.example/a", kelo, false},
      {"https://kelo.example@evil.example/a", kelo, false},
      {"https://example/a", kelo, false},
      {"https://kelo.example/a", {}, false},
      {"https://kelo.example/a", {"", "  ", "\t"}, false},
      {"https://cdn.kelo.example/a", {"*.kelo.example"}, false},
      {"https://cdn.kelo.example/a", {".kelo.example"}, false},
      {"https://kelo.example/a", {"kelo.example\n"}, false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(URLTrust::isTrusted(parsed(row.url), row.domains), row.isTrusted)
        << row.url << " against " << ::testing::PrintToString(row.domains);
  }
}

TEST(URLTrust, NormalizesHostsForComparison) {
  const std::vector<std::pair<std::string, std::string>> rows{
      {"Kelo.Example", "kelo.example"},
      {" \tkelo.example\t", "kelo.example"},
      {"\u00A0kelo.example\u3000", "kelo.example"},
      {"kelo.example...", "kelo.example"},
      {"...", ""},
      {"", ""},
      {" ", ""},
      {"kelo.example\n", "kelo.example\n"},
  };
  for (const auto& [host, normal] : rows) EXPECT_EQ(URLTrust::normalizedHost(host), normal) << host;
}

TEST(URLTrust, KnowsHTTPSInAnyCase) {
  EXPECT_TRUE(URLTrust::isHTTPS(parsed("https://a")));
  EXPECT_TRUE(URLTrust::isHTTPS(parsed("HttpS://a")));
  EXPECT_FALSE(URLTrust::isHTTPS(parsed("http://a")));
  EXPECT_FALSE(URLTrust::isHTTPS(parsed("a/b")));
}

class ConfiguredURLTrust : public ::testing::Test {
 protected:
  ConfiguredURLTrust() {
    machine.setConfiguration(R"({"apps": {}, "trustedDownloadDomains": ["kelo.example", "other.example"]})");
  }
  test::SimulatedMachine machine;
};

TEST_F(ConfiguredURLTrust, JudgesByTheBuildsDomains) {
  EXPECT_TRUE(URLTrust::isTrusted(parsed("https://cdn.other.example/x")));
  EXPECT_FALSE(URLTrust::isTrusted(parsed("https://third.example/x")));
}

TEST_F(ConfiguredURLTrust, SaysWhatItRefusedAndWhatItTrusts) {
  const std::string rest =
      R"( is not https on a host in trustedDownloadDomains ["kelo.example", "other.example"])";
  EXPECT_EQ(URLTrust::refusalReason(parsed("https://Evil.example./x")), "'Evil.example.'" + rest);
  EXPECT_EQ(URLTrust::refusalReason(parsed("nothing/x")), "'unknown'" + rest);
}

}  // namespace
}  // namespace installer
