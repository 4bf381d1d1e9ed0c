// The contract of readers of property lists.
#include <nlohmann/json.hpp>

#include "Contract/MachineUnderTest.h"
#include "Support/PropertyListText.h"

namespace installer::test {
namespace {

class PropertyListContract : public Contract {
 protected:
  Result<Json> parse(std::string_view bytes) { return machine.propertyList.parse(bytes); }
  Result<Json> parseElement(const std::string& element) {
    return parse("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + element +
                 "</plist>\n");
  }
  static std::string nestedArrays(int depth) {
    std::string opened;
    std::string closed;
    for (int level = 0; level < depth; ++level) {
      opened += "<array>";
      closed += "</array>";
    }
    return opened + closed;
  }
};

TEST_P(PropertyListContract, ReadsEveryKindOfValue) {
  const Json value{{"string", "text & <more> ü"},
                   {"yes", true},
                   {"no", false},
                   {"integer", 42},
                   {"array", Json::array({"a", 1, Json::object()})},
                   {"dictionary", {{"inner", "value"}}}};
  EXPECT_EQ(parse(propertyListText(value)).value(), value);
  EXPECT_EQ(parseElement("<integer>-7</integer>").value(), -7);
  EXPECT_EQ(parseElement("<real>0.5</real>").value(), 0.5);
  EXPECT_EQ(parseElement("<string></string>").value(), "");
  EXPECT_EQ(parseElement("<dict></dict>").value(), Json::object());
  EXPECT_EQ(parseElement("<date>2026-03-01T12:34:56Z</date>").value(), 1772368496.0);
  EXPECT_EQ(parseElement("<data>YWJj</data>").value(), Json::binary({'a', 'b', 'c'}));
}

TEST_P(PropertyListContract, ReadsTheBinaryFormat) {
  // { "a": 1 }
  const std::string bytes =
      std::string{"bplist00"} + std::string{"\xd1\x01\x02\x51\x61\x10\x01", 7} +
      std::string{"\x08\x0b\x0d", 3} +
      std::string{"\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0\x03\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x0f", 32};
  EXPECT_EQ(parse(bytes).value(), (Json{{"a", 1}}));
}

// Readers recurse, also on threads with small stacks.
TEST_P(PropertyListContract, RefusesWhatNestsTooDeep) {
  EXPECT_TRUE(parseElement(nestedArrays(100)));
  for (const int depth : {200, 9999}) {
    const auto parsed = parseElement(nestedArrays(depth));
    EXPECT_FALSE(parsed) << depth;
  }
}

TEST_P(PropertyListContract, RefusesWhatIsMalformed) {
  std::string deep;
  for (int level = 0; level < 100000; ++level) deep += "<array>";
  const std::string inputs[] = {"",
                                "garbage",
                                "bplist00",
                                "bplist00garbage",
                                "<plist><dict>",
                                "<plist",
                                "<plist version=\"1.0\"><unknown/></plist>",
                                "<plist version=\"1.0\">" + deep};
  for (const auto& input : inputs) {
    const auto parsed = parse(input);
    ASSERT_FALSE(parsed) << input.substr(0, 80) << " gave " << parsed->dump();
    EXPECT_TRUE(parsed.error().is(ErrorDomain::cocoa, CocoaError::fileReadCorrupt)) << input.substr(0, 80);
  }
}

INSTANTIATE_CONTRACT(PropertyListContract);

}  // namespace
}  // namespace installer::test
