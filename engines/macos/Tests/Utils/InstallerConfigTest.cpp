#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/SimulatedMachine.h"
#include "Utils/InstallerConfig.h"

namespace installer {
namespace {

using test::Lines;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kDefaultPage = "https://www.kelo.example/download/";
const std::string kNoCDNBlock =
    "WARN InstallerConfig: no 'cdn' block in installer_config.json — online downloads will fail";

class InstallerConfigFile : public ::testing::Test {
 protected:
  test::SimulatedMachine mac;

  // The configuration's log lines after reading `text`.
  Lines loaded(std::string_view text) {
    mac.setConfiguration(text);
    return loaded();
  }
  Lines loaded() {
    InstallerConfig::flavour();
    return mac.logLines();
  }

  static void expectAllDefaults() {
    for (const auto each : AppIdentifiers::allCases) {
      EXPECT_EQ(InstallerConfig::config(each), nullptr);
      EXPECT_TRUE(InstallerConfig::isIncluded(each));
    }
    EXPECT_EQ(InstallerConfig::installScope(), "user");
    EXPECT_TRUE(InstallerConfig::showTermsStep());
    EXPECT_EQ(InstallerConfig::flavour(), "default");
    EXPECT_EQ(InstallerConfig::downloadPageURL(), kDefaultPage);
    EXPECT_EQ(InstallerConfig::helpURL(), kDefaultPage);
    EXPECT_EQ(InstallerConfig::feedbackURL(), kDefaultPage + "contact-us.html");
    EXPECT_EQ(InstallerConfig::webURL("brenna"), std::nullopt);
    EXPECT_EQ(InstallerConfig::expiresOn(true), std::nullopt);
    EXPECT_EQ(InstallerConfig::expiresOn(false), std::nullopt);
    EXPECT_EQ(InstallerConfig::trustedDownloadDomains().size(), 4U);
    EXPECT_EQ(InstallerConfig::expectedSigningTeamId(), "QX7M4R2V9D");
    expectDefaultCDN();
  }
  static void expectDefaultCDN() {
    EXPECT_EQ(InstallerConfig::cdnDataCenter(), CDNDataCenter::us);
    EXPECT_EQ(InstallerConfig::cdnDistributionRoot(), "desksuite");
    EXPECT_EQ(InstallerConfig::cdnAppsRoot(), "apps");
    EXPECT_EQ(InstallerConfig::cdnRelease(), "latest");
    EXPECT_FALSE(InstallerConfig::releaseNotesEnabled());
    EXPECT_EQ(InstallerConfig::cdnBaseURL(), "");
  }
};

TEST_F(InstallerConfigFile, ThatIsMissingCostsAWarningAndGivesTheDefaults) {
  EXPECT_EQ(loaded(),
            Lines{"WARN InstallerConfig: installer_config.json not found in bundle — using defaults"});
  expectAllDefaults();
}

TEST_F(InstallerConfigFile, IsMissingWithoutResources) {
  mac.noResources();
  EXPECT_EQ(loaded(),
            Lines{"WARN InstallerConfig: installer_config.json not found in bundle — using defaults"});
  expectAllDefaults();
}

TEST_F(InstallerConfigFile, ThatCannotBeReadCostsAnErrorAndGivesTheDefaults) {
  mac.setConfiguration(R"({"apps": {}, "flavour": "other"})");
  mac.files.failAlways(test::Operation::openForReading, joined(mac.resources, "installer_config.json"),
                       {"NSCocoaErrorDomain", 257, "No permission.", nullptr});
  EXPECT_EQ(loaded(), Lines{"ERROR InstallerConfig: Failed to read installer_config.json: No permission."});
  expectAllDefaults();
}

// A further read would fail with another error or use up the memory.
TEST_F(InstallerConfigFile, ThatIsTooLongIsNotReadToItsEnd) {
  mac.setConfiguration(R"({"apps": {}})" + std::string(20UL << 20U, ' '));
  const auto path = joined(mac.resources, "installer_config.json");
  mac.files.failAfter(65, test::Operation::read, path, {"NSPOSIXErrorDomain", 5, "Read on.", nullptr});
  EXPECT_EQ(loaded(), Lines{"ERROR InstallerConfig: Failed to read installer_config.json: “" + path +
                            "” is longer than 16777216 bytes."});
  expectAllDefaults();
}

TEST_F(InstallerConfigFile, ThatIsNoJSONCostsAnErrorAndGivesTheDefaults) {
  EXPECT_EQ(loaded(R"({"apps": {}, )"), Lines{"ERROR InstallerConfig: Failed to read installer_config.json: "
                                              "The text isn't valid JSON around byte 14."});
  expectAllDefaults();
}

class InstallerConfigOfInvalidStructure : public InstallerConfigFile,
                                          public ::testing::WithParamInterface<const char*> {};

TEST_P(InstallerConfigOfInvalidStructure, IsRejectedAsAWhole) {
  EXPECT_EQ(loaded(GetParam()),
            Lines{"ERROR InstallerConfig: Invalid JSON structure in installer_config.json"});
  expectAllDefaults();
}

INSTANTIATE_TEST_SUITE_P(Files, InstallerConfigOfInvalidStructure,
                         ::testing::Values("{}", "[]", R"([{"apps": {}}])", R"({"apps": []})",
                                           R"({"apps": "all"})", R"({"apps": null})",
                                           R"({"flavour": "other", "showTermsStep": false,
                                               "cdn": {"domains": {"us": "https://cdn-kelo.example"}}})"));

TEST_F(InstallerConfigFile, WithoutEntriesIsValid) {
  EXPECT_EQ(loaded(R"({"apps": {}})"),
            (Lines{kNoCDNBlock, "INFO InstallerConfig: Loaded config for 0 apps",
                   "INFO InstallerConfig: installScope=user, showTermsStep=true, flavour=default",
                   "INFO InstallerConfig: downloadPageUrl=" + kDefaultPage + ", helpUrl=" + kDefaultPage +
                       ", feedbackUrl=" + kDefaultPage +
                       "contact-us.html, expiresOn online=(never) offline=(never)",
                   "INFO InstallerConfig: expectedSigningTeamId=QX7M4R2V9D",
                   "INFO InstallerConfig: cdn dataCenter=us, base=(unset!), roots=desksuite/apps, "
                   "release=latest, releaseNotesEnabled=false"}));
  expectAllDefaults();
}

TEST_F(InstallerConfigFile, IsTakenKeyByKey) {
  const auto lines = loaded(R"({
      "apps": {"tolvi": {"primaryBundleIdentifier": "com.kelo.t", "otherBundleIdentifiers": ["a", "b"]},
               "rulo": {"primaryBundleIdentifier": "com.kelo.r", "included": false},
               "stranger": {"primaryBundleIdentifier": ""}},
      "installScope": "machine", "showTermsStep": false, "flavour": "fed",
      "downloadPageUrl": "https://kelo.example/get", "helpUrl": "https://kelo.example/help",
      "feedbackUrl": "https://kelo.example/say", "appWebUrls": {"brenna": "https://b.example", "rulo": ""},
      "expiresOn": {"online": "2030-01-31", "offline": "2031-02-28"},
      "trustedDownloadDomains": ["one.example", "two.example"], "expectedSigningTeamId": "ABCDE12345",
      "cdn": {"dataCenter": "local", "domains": {"local": "https://l.example/", "us": "https://u.example"},
              "distributionRoot": "d", "appsRoot": "a", "release": "r7", "releaseNotesEnabled": true},
      "unknown": 1})");
  EXPECT_EQ(
      lines,
      (Lines{"INFO InstallerConfig: Loaded config for 3 apps", "INFO   rulo: primary=com.kelo.r, others=[]",
             "INFO   stranger: primary=, others=[]", R"(INFO   tolvi: primary=com.kelo.t, others=["a", "b"])",
             "INFO InstallerConfig: installScope=machine, showTermsStep=false, flavour=fed",
             "INFO InstallerConfig: downloadPageUrl=https://kelo.example/get, "
             "helpUrl=https://kelo.example/help, feedbackUrl=https://kelo.example/say, "
             "expiresOn online=2030-01-31 offline=2031-02-28",
             "INFO InstallerConfig: expectedSigningTeamId=ABCDE12345",
             "INFO InstallerConfig: cdn dataCenter=local, base=https://l.example, roots=d/a, "
             "release=r7, releaseNotesEnabled=true"}));
  ASSERT_NE(InstallerConfig::config(AppIdentifier::tolvi), nullptr);
  EXPECT_EQ(InstallerConfig::config(AppIdentifier::tolvi)->primaryBundleIdentifier, "com.kelo.t");
  EXPECT_FALSE(InstallerConfig::isIncluded(AppIdentifier::rulo));
  EXPECT_TRUE(InstallerConfig::isIncluded(AppIdentifier::brenna));
  EXPECT_EQ(InstallerConfig::webURL("brenna"), "https://b.example");
  EXPECT_EQ(InstallerConfig::webURL("rulo"), std::nullopt);
  EXPECT_EQ(InstallerConfig::expiresOn(false), "2030-01-31");
  EXPECT_EQ(InstallerConfig::expiresOn(true), "2031-02-28");
  EXPECT_THAT(InstallerConfig::trustedDownloadDomains(), ElementsAre("one.example", "two.example"));
  EXPECT_EQ(InstallerConfig::cdnDistributionRoot(), "d");
  EXPECT_EQ(InstallerConfig::cdnAppsRoot(), "a");
  EXPECT_EQ(InstallerConfig::cdnRelease(), "r7");
  EXPECT_TRUE(InstallerConfig::releaseNotesEnabled());
}

TEST_F(InstallerConfigFile, CountsWrongTypesAsMissingWithoutAWord) {
  const auto lines = loaded(R"({"apps": {}, "installScope": 1, "showTermsStep": "false", "flavour": null,
      "downloadPageUrl": [], "helpUrl": {}, "feedbackUrl": true, "appWebUrls": {"brenna": "https://b.example",
      "rulo": 3}, "expiresOn": {"online": "2020-01-01", "offline": 2020},
      "trustedDownloadDomains": ["one.example", 2], "expectedSigningTeamId": 1e400, "unknown": "\ud800",
      "cdn": {"dataCenter": 3, "domains": {"us": "https://u.example", "cn": null}, "distributionRoot": 1,
      "appsRoot": [], "release": false, "releaseNotesEnabled": "true"}})");
  expectAllDefaults();
  EXPECT_EQ(lines.size(), 5U);
  EXPECT_EQ(lines.front(), "INFO InstallerConfig: Loaded config for 0 apps");
}

TEST_F(InstallerConfigFile, CountsEmptyAddressesAsMissingButKeepsOtherEmptyValues) {
  const auto lines = loaded(R"({"apps": {}, "downloadPageUrl": "", "helpUrl": "", "feedbackUrl": "",
      "expectedSigningTeamId": "", "trustedDownloadDomains": [], "flavour": "", "installScope": "",
      "expiresOn": {"online": "", "offline": ""}, "cdn": {"distributionRoot": ""}})");
  EXPECT_EQ(InstallerConfig::downloadPageURL(), kDefaultPage);
  EXPECT_EQ(InstallerConfig::helpURL(), kDefaultPage);
  EXPECT_EQ(InstallerConfig::feedbackURL(), kDefaultPage + "contact-us.html");
  EXPECT_EQ(InstallerConfig::expectedSigningTeamId(), "");
  EXPECT_THAT(InstallerConfig::trustedDownloadDomains(), IsEmpty());
  EXPECT_EQ(InstallerConfig::flavour(), "");
  EXPECT_EQ(InstallerConfig::installScope(), "");
  EXPECT_EQ(InstallerConfig::expiresOn(false), std::nullopt);
  EXPECT_EQ(InstallerConfig::cdnDistributionRoot(), "");
  EXPECT_THAT(lines, Contains("INFO InstallerConfig: expectedSigningTeamId=(EMPTY — installed-app signature "
                              "requirement checks are DISABLED)"));
}

TEST_F(InstallerConfigFile, TellsItsFaultsInOrderBeforeWhatItLoaded) {
  auto lines = loaded(R"({"cdn": {"dataCenter": "eu"}, "apps": {"tolvi": [], "brenna": null}})");
  ASSERT_GE(lines.size(), 4U);
  lines.resize(4);
  EXPECT_EQ(lines, (Lines{"WARN InstallerConfig: Skipping invalid entry for 'brenna'",
                          "WARN InstallerConfig: Skipping invalid entry for 'tolvi'",
                          "INFO InstallerConfig: unknown cdn.dataCenter 'eu' — falling back to 'us'. Fix "
                          "installer_config.json.",
                          "INFO InstallerConfig: Loaded config for 0 apps"}));
}

TEST_F(InstallerConfigFile, CountsAnEmptyDateAsNone) {
  const auto lines = loaded(R"({"apps": {}, "expiresOn": {"online": "", "offline": "2031-02-28"}})");
  EXPECT_EQ(InstallerConfig::expiresOn(false), std::nullopt);
  EXPECT_EQ(InstallerConfig::expiresOn(true), "2031-02-28");
  EXPECT_THAT(lines, Contains(::testing::EndsWith("expiresOn online=(never) offline=2031-02-28")));
}

TEST_F(InstallerConfigFile, DefaultsTheHelpPageToTheBuiltInPageAndNotToItsOwn) {
  loaded(R"({"apps": {}, "downloadPageUrl": "https://kelo.example/get"})");
  EXPECT_EQ(InstallerConfig::downloadPageURL(), "https://kelo.example/get");
  EXPECT_EQ(InstallerConfig::helpURL(), kDefaultPage);
}

TEST_F(InstallerConfigFile, SkipsInvalidEntriesAndLoadsTheOthers) {
  const auto lines = loaded(R"({"cdn": {}, "apps": {"brenna": "com.kelo.b", "tolvi": {}, "rulo":
      {"primaryBundleIdentifier": 3}, "galdivane": {"primaryBundleIdentifier": "com.kelo.g"}}})");
  EXPECT_THAT(lines, ::testing::IsSupersetOf({"WARN InstallerConfig: Skipping invalid entry for 'brenna'",
                                              "WARN InstallerConfig: Skipping invalid entry for 'tolvi'",
                                              "WARN InstallerConfig: Skipping invalid entry for 'rulo'",
                                              "INFO InstallerConfig: Loaded config for 1 apps"}));
  EXPECT_EQ(InstallerConfig::config(AppIdentifier::brenna), nullptr);
  EXPECT_NE(InstallerConfig::config(AppIdentifier::galdivane), nullptr);
}

TEST_F(InstallerConfigFile, IncludesAnAppWhoseFlagOrOthersHaveAWrongType) {
  loaded(R"({"apps": {"rulo": {"primaryBundleIdentifier": "r", "included": "no",
                               "otherBundleIdentifiers": ["a", 1]}}})");
  EXPECT_TRUE(InstallerConfig::isIncluded(AppIdentifier::rulo));
  EXPECT_THAT(InstallerConfig::config(AppIdentifier::rulo)->otherBundleIdentifiers, IsEmpty());
}

TEST_F(InstallerConfigFile, MatchesTheDataCentreInAnyCase) {
  const auto lines = loaded(R"({"apps": {}, "cdn": {"dataCenter": "CN"}})");
  EXPECT_EQ(InstallerConfig::cdnDataCenter(), CDNDataCenter::cn);
  EXPECT_EQ(InstallerConfig::cdnBaseURL(), "");
  EXPECT_EQ(lines.back(),
            "INFO InstallerConfig: cdn dataCenter=cn, base=(unset!), roots=desksuite/apps, release=latest, "
            "releaseNotesEnabled=false");
}

TEST_F(InstallerConfigFile, FallsBackFromAnUnknownDataCentreAndReadsTheRestOfTheBlock) {
  const auto lines = loaded(
      R"({"apps": {}, "cdn": {"dataCenter": "EU", "release": "r1", "domains": {"us": "https://u.example"}}})");
  EXPECT_THAT(lines, Contains("INFO InstallerConfig: unknown cdn.dataCenter 'eu' — falling back to 'us'. Fix "
                              "installer_config.json."));
  EXPECT_EQ(InstallerConfig::cdnDataCenter(), CDNDataCenter::us);
  EXPECT_EQ(InstallerConfig::cdnRelease(), "r1");
  EXPECT_EQ(InstallerConfig::cdnBaseURL(), "https://u.example");
}

TEST_F(InstallerConfigFile, WarnsOfACDNBlockThatIsNoObject) {
  EXPECT_THAT(loaded(R"({"apps": {}, "cdn": "https://u.example"})"), Contains(kNoCDNBlock));
  expectDefaultCDN();
}

TEST(CDNConfig, DropsOneTrailingSlashOfItsBase) {
  const struct {
    const char* domain;
    const char* base;
  } rows[] = {
      {"https://u.example", "https://u.example"},
      {"https://u.example/", "https://u.example"},
      {"https://u.example//", "https://u.example/"},
      {"/", ""},
      {"", ""},
      {"not a url", "not a url"},
  };
  for (const auto& row : rows) {
    CDNConfig cdn;
    cdn.domains["us"] = row.domain;
    EXPECT_EQ(cdn.baseURL(), row.base) << row.domain;
  }
}

TEST_F(InstallerConfigFile, IsReadOncePerProcess) {
  loaded(R"({"apps": {}, "flavour": "first"})");
  mac.setConfiguration(R"({"apps": {}, "flavour": "second"})");
  EXPECT_EQ(InstallerConfig::flavour(), "first");
}

}  // namespace
}  // namespace installer
