#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Base/POSIX/PropertyListReader.h"
#include "CodeResources.h"
#include "PropertyList.h"
#include "Support/Workshop.h"

namespace lab {
namespace {

const std::string kFileHash = "<key>hash2</key><data>AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA=</data>";

std::string document(const std::string& rules, const std::string& files = "") {
  return "<plist><dict><key>rules2</key><dict>" + rules + "</dict><key>files2</key><dict>" + files +
         "</dict></dict></plist>";
}

Outcome<CodeResources> readResources(const std::string& rules, const std::string& files = "") {
  return CodeResources::read(viewOf(document(rules, files)));
}

const std::string kAll = "<key>^.*</key><true/>";

std::string omit(const std::string& expression) {
  return "<key>" + expression + "</key><dict><key>omit</key><true/><key>weight</key><real>2000</real></dict>";
}

TEST(CodeResources, TheHeaviestRuleDecides) {
  const auto resources = readResources(
      kAll +
      "<key>^Resources/</key><dict><key>weight</key><real>20</real></dict>"
      "<key>^Resources/.*\\.lproj/</key><dict><key>optional</key><true/><key>weight</key><integer>1000</"
      "integer></dict>"
      "<key>^[^/]+$</key><dict><key>nested</key><true/><key>weight</key><real>10</real></dict>");
  ASSERT_TRUE(resources) << resources.error().reason;
  EXPECT_EQ(resources->ruleFor("MacOS/x")->expression, "^.*");
  EXPECT_EQ(resources->ruleFor("Resources/x")->weight, 20);
  EXPECT_TRUE(resources->ruleFor("Resources/en.lproj/x")->optional);
  EXPECT_TRUE(resources->ruleFor("helper")->nested);
}

TEST(CodeResources, RulesThatCouldHideThingsAreRefused) {
  EXPECT_FALSE(readResources("")) << "no rule takes in everything";
  EXPECT_FALSE(readResources("<key>^.*</key><false/>"));
  EXPECT_FALSE(readResources("<key>^Resources/</key><true/>"));
  EXPECT_FALSE(readResources("<key>^.*</key><dict><key>optional</key><true/></dict>"));
  for (const char* expression : {"^Resources/hidden/", "^.*\\.dylib$", "^Resources/|PkgInfo$", ".*",
                                 "PkgInfo$", "^(a|b)\\.DS_Store$"}) {
    EXPECT_FALSE(readResources(kAll + omit(expression))) << expression;
  }
  EXPECT_FALSE(readResources(kAll + "<key>^Resources/hidden</key><false/>"));
}

TEST(CodeResources, TheUsualOmissionsAreAccepted) {
  for (const char* expression :
       {"^(.*/)?\\.DS_Store$", "^Info\\.plist$", "^PkgInfo$", "^Resources/.*\\.lproj/locversion.plist$"}) {
    EXPECT_TRUE(readResources(kAll + omit(expression))) << expression;
  }
}

TEST(CodeResources, AnOmissionCoversOnlyTheUsualFiles) {
  for (const char* path :
       {".DS_Store", "Resources/.DS_Store", "Info.plist", "PkgInfo", "Resources/en.lproj/locversion.plist"})
    EXPECT_TRUE(mayBeOmitted(path)) << path;
  for (const char* path : {"x.DS_Store", "Resources/PkgInfo", "locversion.plist",
                           "Resources/locversion.plist", "evilInfo.plist", ".DS_Store/x"}) {
    EXPECT_FALSE(mayBeOmitted(path)) << path;
  }
}

TEST(CodeResources, ReadsEveryKindOfSeal) {
  const auto resources =
      readResources(kAll, "<key>a</key><dict>" + kFileHash + "</dict><key>b</key><dict>" + kFileHash +
                              "<key>optional</key><true/></dict>"
                              "<key>c</key><dict><key>symlink</key><string>a</string></dict>"
                              "<key>d</key><dict><key>cdhash</key><data>AAAA</"
                              "data><key>requirement</key><string>always</string></dict>");
  ASSERT_TRUE(resources) << resources.error().reason;
  EXPECT_EQ(resources->seals().at("a").hash.size(), 32U);
  EXPECT_TRUE(resources->seals().at("b").optional);
  EXPECT_EQ(resources->seals().at("c").target, "a");
  EXPECT_EQ(resources->seals().at("d").requirement, "always");
}

TEST(CodeResources, RefusesSealsThatProveNothing) {
  for (const char* seal : {"<dict/>", "<true/>", "<string>x</string>",
                           "<dict><key>hash</key><data>AAAAAAAAAAAAAAAAAAAAAAAAAAA=</data></dict>",
                           "<dict><key>hash2</key><data>AAAA</data></dict>",
                           "<dict><key>symlink</key><string></string></dict>"}) {
    EXPECT_FALSE(readResources(kAll, std::string("<key>a</key>") + seal)) << seal;
  }
}

TEST(CodeResources, ASHA1CountsOnlyWhereItIsAskedForAndThereIsNoSHA256) {
  const std::string weak = "<data>AAAAAAAAAAAAAAAAAAAAAAAAAAA=</data>";
  const auto readWeak = [](const std::string& seal) {
    return CodeResources::read(viewOf(document(kAll, "<key>a</key>" + seal)), HashType::sha1);
  };
  for (const std::string& seal : {weak, "<dict><key>hash</key>" + weak + "</dict>"}) {
    const auto resources = readWeak(seal);
    ASSERT_TRUE(resources) << resources.error().reason;
    EXPECT_EQ(resources->seals().at("a").hash.size(), 20U);
    EXPECT_FALSE(readResources(kAll, "<key>a</key>" + seal));
  }
  const auto both = readWeak("<dict><key>hash</key>" + weak + kFileHash + "</dict>");
  EXPECT_EQ(both.value().seals().at("a").hash.size(), 32U);
  EXPECT_FALSE(readWeak("<dict><key>hash</key>" + weak + "<key>hash2</key><data>AAAA</data></dict>"));
}

TEST(CodeResources, OnePathHasOneSeal) {
  const std::string seal = "<dict>" + kFileHash + "</dict>";
  EXPECT_TRUE(readResources(kAll, "<key>U\u0308</key>" + seal));
  EXPECT_FALSE(readResources(kAll, "<key>U\u0308</key>" + seal + "<key>\u00dc</key>" + seal));
}

TEST(CodeResources, RulesTogetherAreBounded) {
  std::string heavy = kAll;
  for (int i = 0; i < 10; ++i)
    heavy += "<key>^x" + std::to_string(i) + "[ab]{250}[ab]{250}[ab]{250}[ab]{250}</key><true/>";
  EXPECT_FALSE(readResources(heavy));
}

TEST(CodeResources, TheFirstGenerationAloneIsntEnough) {
  EXPECT_FALSE(CodeResources::read(
      viewOf("<plist><dict><key>rules</key><dict/><key>files</key><dict/></dict></plist>")));
  EXPECT_FALSE(CodeResources::read(viewOf("<plist><array/></plist>")));
  EXPECT_FALSE(CodeResources::read(viewOf("no property list")));
}

TEST(CodeResources, RefusesTooManyOrMalformedRules) {
  std::string many = kAll;
  for (int i = 0; i < 1000; ++i) many += "<key>^x" + std::to_string(i) + "</key><true/>";
  EXPECT_FALSE(readResources(many));
  EXPECT_FALSE(readResources(kAll + "<key>(</key><true/>"));
  EXPECT_FALSE(readResources(kAll + "<key>x</key><string>yes</string>"));
  EXPECT_FALSE(readResources(kAll + "<key>x</key><dict><key>weight</key><string>heavy</string></dict>"));
}

std::string arrayOf(std::size_t count) {
  std::string document = "<plist><array>";
  for (std::size_t i = 0; i < count; ++i) document += "<true/>";
  return document + "</array></plist>";
}

TEST(PropertyList, MayHaveMoreValuesThanTheEngineReads) {
  EXPECT_TRUE(readPropertyList(viewOf(arrayOf(300'000))));
  EXPECT_FALSE(installer::readPropertyList(arrayOf(300'000)));
  EXPECT_FALSE(readPropertyList(viewOf(arrayOf(2'000'000))));
}

TEST(PropertyList, RefusesATagThatLooksLikeAComment) {
  EXPECT_FALSE(readPropertyList(kQuotedComment));
}

// Each of twelve arrays refers twice to the next: 8,191 values, which the engine's bound allows.
TEST(PropertyList, RefusesASmallBinaryListThatUnfoldsIntoALargeOne) {
  std::string bytes = "bplist00";
  std::string offsets;
  for (char next = 1; next <= 12; ++next) {
    offsets += static_cast<char>(bytes.size());
    bytes += std::string("\xA2") + next + next;
  }
  offsets += static_cast<char>(bytes.size());
  bytes += '\x09';
  const auto table = static_cast<char>(bytes.size());
  bytes += offsets + std::string(6, '\0') + "\x01\x01" + std::string(7, '\0') + '\x0D' +
           std::string(8, '\0') + std::string(7, '\0') + table;
  EXPECT_TRUE(installer::readPropertyList(bytes));
  EXPECT_FALSE(readPropertyList(viewOf(bytes)));
}

}  // namespace
}  // namespace lab
