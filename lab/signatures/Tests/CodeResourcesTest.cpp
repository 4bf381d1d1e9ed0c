#include <gtest/gtest.h>

#include "CodeResources.h"
#include "PropertyList.h"

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

TEST(PropertyList, BoundsTheNestingOfXML) {
  std::string deep;
  for (int i = 0; i < 200000; ++i) deep += "<array>";
  EXPECT_FALSE(PropertyList::read(viewOf("<plist>" + deep)));
  EXPECT_FALSE(PropertyList::read(viewOf("<plist><!-- </array> -->" + deep)));
}

TEST(PropertyList, BoundsWhatTextsOfXMLCost) {
  const auto withText = [](const std::string& piece, std::size_t times) {
    std::string document = "<plist><string>";
    for (std::size_t i = 0; i < times; ++i) document += piece;
    return document + "</string></plist>";
  };
  EXPECT_EQ(PropertyList::read(viewOf(withText("a&amp;b", 300))).value().text()->size(), 900U);
  // The parser would take minutes for each.
  EXPECT_FALSE(PropertyList::read(viewOf(withText("&amp;", 400000))));
  EXPECT_FALSE(PropertyList::read(viewOf(withText("&lt;<!-- -->", 400000))));
  EXPECT_FALSE(PropertyList::read(viewOf(withText("&lt;<![CDATA[x]]>", 400000))));
  EXPECT_FALSE(PropertyList::read(viewOf("<plist><dict>" + withText("<key>k</key>", 250001))));
}

TEST(PropertyList, BoundsWhatABinaryListUnfoldsInto) {
  // Forty arrays, each of which refers twice to the next.
  std::string bytes = "bplist00";
  std::vector<std::uint8_t> offsets;
  for (std::uint8_t i = 0; i < 40; ++i) {
    offsets.push_back(static_cast<std::uint8_t>(bytes.size()));
    const char next = static_cast<char>(i + 1);
    bytes += std::string("\xA2") + next + next;
  }
  offsets.push_back(static_cast<std::uint8_t>(bytes.size()));
  bytes += '\x09';
  const auto table = static_cast<char>(bytes.size());
  bytes.append(offsets.begin(), offsets.end());
  bytes += std::string(6, '\0') + "\x01\x01" + std::string(7, '\0') + static_cast<char>(41) +
           std::string(8, '\0') + std::string(7, '\0') + table;
  const auto read = PropertyList::read(viewOf(bytes));
  ASSERT_FALSE(read);
  EXPECT_EQ(read.error().reason, "binary property list is malformed or unfolds without bound");
}

TEST(PropertyList, RefusesABinaryListThatContainsItself) {
  std::string bytes("bplist00\xA1\x00", 10);
  bytes += '\x08';
  bytes += std::string(6, '\0') + "\x01\x01" + std::string(7, '\0') + '\x01' + std::string(8, '\0') +
           std::string(7, '\0') + '\x0A';
  EXPECT_FALSE(PropertyList::read(viewOf(bytes)));
}

TEST(PropertyList, ReadsEveryKindOfValue) {
  const auto list = PropertyList::read(
      viewOf("<plist><dict><key>t</key><true/><key>i</key><integer>7</integer><key>r</key><real>1.5</real>"
             "<key>s</key><string>x</string><key>d</key><data>AQI=</data><key>a</key><array><string>y</"
             "string></array></dict></plist>"));
  ASSERT_TRUE(list);
  EXPECT_TRUE(*list->find("t")->boolean());
  EXPECT_EQ(list->find("i")->number(), 7);
  EXPECT_EQ(list->find("r")->number(), 1.5);
  EXPECT_EQ(list->textAt("s"), "x");
  EXPECT_EQ(*list->find("d")->data(), (Bytes{1, 2}));
  EXPECT_EQ(*list->find("a")->array()->front().text(), "y");
  EXPECT_EQ(list->find("none"), nullptr);
}

}  // namespace
}  // namespace lab
