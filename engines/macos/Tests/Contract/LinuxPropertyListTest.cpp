// Hostile property lists: those of a disk image are read before the image is verified.
#include <fmt/format.h>
#include <functional>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Base/POSIX/PropertyListBounds.h"
#include "Platform/Linux/LinuxServices.h"

namespace installer::test {
namespace {

std::string repeated(const std::string& text, std::size_t count) {
  std::string all;
  for (std::size_t index = 0; index < count; ++index) all += text;
  return all;
}

std::string xml(const std::string& body) {
  return "<plist version=\"1.0\">" + body + "</plist>";
}

std::string nested(std::size_t depth) {
  return xml(repeated("<array>", depth) + "<true/>" + repeated("</array>", depth));
}

// A binary list with one-byte references: the encoded `objects`, the first as the top object.
std::string binary(const std::vector<std::string>& objects) {
  std::string bytes{kBinaryPropertyListMagic};
  std::string table;
  for (const auto& object : objects) {
    table += static_cast<char>(bytes.size() >> 8U);
    table += static_cast<char>(bytes.size());
    bytes += object;
  }
  const auto longWord = [](std::size_t value) {
    std::string word;
    for (unsigned shift = 64; shift > 0;) word += static_cast<char>(value >> (shift -= 8));
    return word;
  };
  const std::size_t at = bytes.size();
  return bytes + table + std::string(6, '\0') + "\x02\x01" + longWord(objects.size()) + longWord(0) +
         longWord(at);
}

class LinuxPlists : public testing::Test {
 protected:
  LinuxPropertyList lists;

  void expectCorrupt(const std::string& bytes, const std::string& what) {
    const auto parsed = lists.parse(bytes);
    ASSERT_FALSE(parsed) << what;
    EXPECT_TRUE(parsed.error().is(ErrorDomain::cocoa, CocoaError::fileReadCorrupt)) << what;
  }
};

TEST_F(LinuxPlists, EveryKindOfValueHasItsCounterpart) {
  const auto parsed = lists.parse(
      xml("<dict><key>text</key><string>a &amp; ü</string><key>yes</key><true/><key>no</key><false/>"
          "<key>number</key><integer>-7</integer><key>real</key><real>1.5</real>"
          "<key>date</key><date>2024-02-29T12:34:56Z</date><key>data</key><data>AAEC</data>"
          "<key>list</key><array><string/><integer>9007199254740993</integer></array></dict>"));
  ASSERT_TRUE(parsed) << parsed.error().localizedDescription;
  EXPECT_EQ(*parsed, (Json{{"text", "a & ü"},
                           {"yes", true},
                           {"no", false},
                           {"number", -7},
                           {"real", 1.5},
                           {"date", 1709210096.0},
                           {"data", Json::binary({0, 1, 2})},
                           {"list", {"", 9007199254740993}}}));
}

TEST_F(LinuxPlists, ABinaryListReadsLikeAnXMLOne) {
  const auto parsed = lists.parse(binary({"\xD1\x01\x02", "\x51k", "\xA2\x03\x03", "\x09"}));
  ASSERT_TRUE(parsed) << parsed.error().localizedDescription;
  EXPECT_EQ(*parsed, (Json{{"k", {true, true}}}));
}

TEST_F(LinuxPlists, AByteOrderMarkIsNoText) {
  EXPECT_TRUE(lists.parse("\xEF\xBB\xBF" + xml("<true/>")));
}

TEST_F(LinuxPlists, MalformedBytesAreCorrupt) {
  for (const std::string& bytes :
       {std::string{}, std::string{"\0\0\0", 3}, std::string{"hello"}, std::string{"<plist>"},
        std::string{"<dict><key>a</key>"}, xml("<array><string>a</array>"), std::string{"bplist00"},
        "bplist00" + std::string(40, '\xFF'), std::string{"{\"json\": 1}"}}) {
    expectCorrupt(bytes, bytes);
  }
}

TEST_F(LinuxPlists, TextThatIsNotUTF8IsCorrupt) {
  expectCorrupt(xml("<string>\xFF\xFE</string>"), "value");
  expectCorrupt(xml("<dict><key>\xFF</key><true/></dict>"), "key");
}

TEST_F(LinuxPlists, DeepNestingIsRefusedInXML) {
  EXPECT_TRUE(lists.parse(nested(100)));
  expectCorrupt(nested(200), "deeper than any list is");
  expectCorrupt(nested(9999), "as many containers as are let through");
  expectCorrupt(nested(1000000), "a stack's worth");
  expectCorrupt(xml(repeated("<array>", 1000000)), "never closed");
}

std::string inUTF16(const std::string& text, bool isBigEndian) {
  std::string bytes = isBigEndian ? "\xFE\xFF" : "\xFF\xFE";
  for (const char character : text) {
    if (isBigEndian) bytes += '\0';
    bytes += character;
    if (!isBigEndian) bytes += '\0';
  }
  return bytes;
}

// Tests the bounds without the library: the system's reader on a Mac accepts more forms.
TEST(XMLPropertyListBounds, CountEveryFormThatAReaderTakes) {
  const std::string declared =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"a\" \"b\">";
  for (const std::string& good :
       {nested(128), declared + nested(100), inUTF16(nested(100), true), inUTF16(nested(100), false),
        xml("<!-- <dict> --><string><![CDATA[<dict>]]></string><dict/>"), xml("<dict >\n</dict\n><array />"),
        "<?xml version='1.0' encoding='utf-16'?>" + nested(1)}) {
    EXPECT_TRUE(isBoundedXMLPropertyList(good)) << good.substr(0, 80);
  }
}

TEST(XMLPropertyListBounds, RefuseWhatNestsTooDeepHoweverItIsDisguised) {
  const auto disguised = [](const std::string& closing) { return xml(repeated("<array>" + closing, 200)); };
  const std::string named = "<?xml version=\"1.0\" encoding=\"";
  for (const std::string& bad : {nested(129),
                                 inUTF16(nested(129), true),
                                 inUTF16(nested(129), false),
                                 disguised("<!-- </array> -->"),
                                 disguised("<string><![CDATA[</array>]]></string>"),
                                 disguised("<?x </array>?>"),
                                 disguised("<string x=\"></array>\"/>"),
                                 disguised("<plist x=\"></array>\"/>"),
                                 disguised("<!DOCTYPE x \"></array>\">"),
                                 xml(repeated("<array x=\"/>\">", 200)),
                                 inUTF16(nested(129), true).substr(2),
                                 std::string(1000, '('),
                                 std::string(1000, '{'),
                                 named + "UTF-7\"?>" + nested(1),
                                 "<!DOCTYPE plist [<!ENTITY a \"<array>\">]>" + nested(1),
                                 xml("<array x=\"><!--\">" + repeated("<array>", 200) +
                                     repeated("</array>", 200) + "</array><!-- -->"),
                                 xml(repeated("<dict/>", 200001)),
                                 xml("</array>"),
                                 xml("<array"),
                                 xml("<!--")}) {
    EXPECT_FALSE(isBoundedXMLPropertyList(bad)) << bad.substr(0, 80);
  }
}

TEST(XMLPropertyListBounds, RefuseWhatTakesMinutesToRead) {
  const auto entities = [](std::size_t count) {
    return xml("<string>" + repeated("&amp;", count) + "</string>");
  };
  EXPECT_TRUE(isBoundedXMLPropertyList(entities(29000)));
  EXPECT_FALSE(isBoundedXMLPropertyList(entities(30000)));
  EXPECT_TRUE(isBoundedXMLPropertyList(xml(repeated("<string>a&amp;b</string>", 199999))));
  const auto keys = [](std::size_t count) {
    return repeated("<dict>" + repeated("<key/>", count) + "</dict>", 2);
  };
  EXPECT_TRUE(isBoundedXMLPropertyList(keys(250000), 1000000));
  EXPECT_FALSE(isBoundedXMLPropertyList(keys(250001), 1000000));
}

TEST_F(LinuxPlists, AnOverlongListIsRefused) {
  expectCorrupt(xml("<string>" + std::string(PropertyListBounds{}.bytes, 'x') + "</string>"), "17 MB");
}

TEST_F(LinuxPlists, AKeyWithANulIsRefused) {
  expectCorrupt(binary({"\xD1\x01\x02", std::string{"\x53k\0y", 4}, "\x09"}), "ASCII");
  expectCorrupt(binary({"\xD1\x01\x02", std::string{"\x62\0k\0\0", 5}, "\x09"}), "UTF-16");
  EXPECT_EQ(lists.parse(binary({"\xD1\x01\x02", std::string{"\x61\0k", 3}, "\x09"})).value_or(nullptr),
            (Json{{"k", true}}));
}

TEST_F(LinuxPlists, ABinaryDictionaryWithAKeyTwiceIsRefused) {
  expectCorrupt(binary({"\xD2\x01\x02\x03\x03", "\x51k", "\x51k", "\x09"}), "which of the values counts?");
}

TEST_F(LinuxPlists, ABinaryListThatContainsItselfIsRefused) {
  expectCorrupt(binary({std::string{"\xA1\x00", 2}}), "an array of itself");
  expectCorrupt(binary({"\xA1\x01", std::string{"\xA1\x00", 2}}), "two arrays of each other");
  expectCorrupt(binary({std::string{"\xD1\x01\x00", 3}, "\x51k"}), "a dictionary of itself");
}

TEST_F(LinuxPlists, ABinaryListThatGrowsWithoutBoundIsRefused) {
  std::vector<std::string> objects;
  for (char level = 1; level <= 40; ++level) objects.push_back(std::string{"\xA2"} + level + level);
  objects.emplace_back("\x09");
  expectCorrupt(binary(objects), "two to the fortieth values");
}

TEST_F(LinuxPlists, ABinaryListWithReferencesOutsideIsRefused) {
  expectCorrupt(binary({"\xA1\x05"}), "no such object");
  expectCorrupt(binary({"\xAF\x10\xFF"}), "more references than bytes");
  expectCorrupt(binary({"\xAF\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"}), "a count that overflows");
  expectCorrupt(binary({"\xAF\x1F"}), "a count of a width that there isn't");
}

TEST_F(LinuxPlists, NoCutOfABinaryListAndNoFlippedByteBringsItDown) {
  const std::string good = binary({"\xD2\x01\x02\x03\x04", "\x51k", "\x51l", "\xA2\x04\x04",
                                   "\x5F\x10\x03"
                                   "abc"});
  ASSERT_TRUE(lists.parse(good));
  for (std::size_t length = 0; length < good.size(); ++length) {
    EXPECT_FALSE(lists.parse(good.substr(0, length))) << length;
  }
  for (std::size_t at = 0; at < good.size(); ++at) {
    for (unsigned bit = 0; bit < 8; ++bit) {
      std::string bad = good;
      bad[at] = static_cast<char>(static_cast<unsigned char>(bad[at]) ^ (1U << bit));
      const auto parsed = lists.parse(bad);
      if (!parsed) continue;
      EXPECT_NO_THROW((void)parsed->dump()) << at << " " << bit;
    }
  }
}

}  // namespace
}  // namespace installer::test
