#include <gtest/gtest.h>

#include "BER.h"
#include "Base/Text.h"

namespace lab {
namespace {

Outcome<BERElement> read(std::string_view hexadecimal) {
  static Bytes bytes;  // the elements are views into it
  bytes = fromHex(hexadecimal).value();
  return readBER(bytes);
}

TEST(BER, ReadsDefiniteAndIndefiniteLengthsAlike) {
  for (const char* text :
       {"3006020101040141", "30800201010401410000", "308106020101040141", "3080020101248004014100000000"}) {
    const auto element = read(text);
    ASSERT_TRUE(element) << text;
    ASSERT_EQ(element->children.size(), 2U) << text;
    EXPECT_EQ(octetsOf(element->children[1]), (Bytes{0x41})) << text;
  }
}

TEST(BER, JoinsThePiecesOfAConstructedString) {
  EXPECT_EQ(octetsOf(read("2480040241420401430000").value()), (Bytes{0x41, 0x42, 0x43}));
  EXPECT_FALSE(octetsOf(read("24030201ff").value())) << "a piece that is no octet string";
}

TEST(BER, KeepsTheRawBytesOfEachElement) {
  const auto element = read(
                           "3080020101040141"
                           "0000"
                           "ffff")
                           .value();
  EXPECT_EQ(installer::hexadecimal(element.raw), "30800201010401410000");
  EXPECT_EQ(installer::hexadecimal(element.content), "020101040141");
}

TEST(BER, RefusesMalformedElements) {
  for (const char* text :
       {"", "30", "3005020101", "3080020101", "0480410000", "30850000000001", "3f8101", "1f8101"}) {
    EXPECT_FALSE(read(text)) << text;
  }
}

TEST(BER, BoundsNestingAndNumber) {
  Bytes deep;
  for (int i = 0; i < 100000; ++i) deep.insert(deep.end(), {0x30, 0x80});
  EXPECT_FALSE(readBER(deep));
  Bytes many{0x30, 0x83, 0x03, 0x00, 0x00};
  many.resize(5 + 0x30000);
  EXPECT_FALSE(readBER(many));
}

TEST(BER, ReadsObjectIdentifiers) {
  EXPECT_EQ(objectIdentifierText(fromHex("2a864886f763640601"
                                         "0d")
                                     .value()),
            "1.2.840.113635.100.6.1.13");
  EXPECT_EQ(objectIdentifierText(fromHex("550403").value()), "2.5.4.3");
  EXPECT_EQ(objectIdentifierText(fromHex("883703").value()), "2.999.3");
  for (const char* bad : {"", "80", "2a86", "ffffffffffffffffffff7f"})
    EXPECT_FALSE(objectIdentifierText(fromHex(bad).value())) << bad;
}

TEST(BER, ReadsTimes) {
  const auto time = [](std::uint32_t tag, std::string_view text) {
    BERElement element;
    element.tag = tag;
    element.content = viewOf(text);
    return timeOf(element);
  };
  using namespace std::chrono;
  EXPECT_EQ(time(kBERUTCTime, "240229235959Z"), sys_days(2024y / February / 29d) + 23h + 59min + 59s);
  EXPECT_EQ(time(kBERUTCTime, "990101000000Z"), sys_days(1999y / January / 1d) + 0s);
  EXPECT_EQ(time(kBERGeneralizedTime, "20240229000000.125Z"), sys_days(2024y / February / 29d) + 0s);
  for (const char* bad : {"20240230000000Z", "20241301000000Z", "20240101250000Z", "2024", "20240101000000",
                          "20240101000000+0100", "2024010100000xZ", "20240101000000.Z"}) {
    EXPECT_FALSE(time(kBERGeneralizedTime, bad)) << bad;
  }
}

}  // namespace
}  // namespace lab
