#include <gtest/gtest.h>
#include <string>

#include "Models/PackageMeta.h"

namespace installer {
namespace {

PackageMeta decoded(const std::string& text) {
  const auto meta = PackageMeta::decode(text);
  EXPECT_TRUE(meta.has_value()) << text;
  return meta.value_or(PackageMeta{});
}

TEST(PackageMeta, ReadsEveryKey) {
  PackageMeta expected;
  expected.product = "Kelo Brenna";
  expected.version = "4.2.1";
  expected.destination = "brenna_installer.dmg";
  expected.size = 279172874;
  expected.checksum = "ABCDEF01";
  expected.checksumAlgorithm = "SHA256";
  expected.alternateDownloadURL = URL::parse("https://cdn-kelo.example/other.dmg");
  expected.flavour = "default";
  expected.os = "mac";
  expected.arch = "arm64";
  expected.format = "dmg";
  expected.release = "latest";
  expected.mode = "production";
  EXPECT_EQ(decoded(R"({"product": "Kelo Brenna", "version": "4.2.1", "destination": "brenna_installer.dmg",
                        "size": 279172874, "checksum": "ABCDEF01", "checksumAlgorithm": "SHA256",
                        "alternateDownloadUrl": "https://cdn-kelo.example/other.dmg", "flavour": "default",
                        "os": "mac", "arch": "arm64", "format": "dmg", "release": "latest",
                        "mode": "production", "unknown": {"key": []}})"),
            expected);
}

TEST(PackageMeta, OfAnEmptyObjectHasNothingButTheDefaultAlgorithm) {
  const auto meta = decoded("{}");
  EXPECT_EQ(meta, PackageMeta{});
  EXPECT_EQ(meta.checksumAlgorithm, "sha256");
}

TEST(PackageMeta, IsAbsentForWhatIsNoJSONObject) {
  for (const auto* const text :
       {"", "[]", "[{}]", "null", "1", "\"text\"", "{", "{}}", "{'version': 1}", "\xff{}"}) {
    EXPECT_EQ(PackageMeta::decode(text), std::nullopt) << text;
  }
}

TEST(PackageMeta, CountsAnEmptyStringAndAWrongTypeAsAbsent) {
  for (const std::string value :
       {"\"\"", "12", "1.5", "1e400", "\"\\ud800\"", "true", "null", "[]", "{}", "[\"a\"]"}) {
    for (const std::string key :
         {"product", "version", "destination", "checksum", "sha256", "checksumAlgorithm",
          "alternateDownloadUrl", "flavour", "os", "arch", "format", "release", "mode"}) {
      EXPECT_EQ(decoded("{\"" + key + "\": " + value + "}"), PackageMeta{}) << key << " " << value;
    }
  }
}

TEST(PackageMeta, LosesOnlyTheFieldThatIsBad) {
  const auto meta = decoded(R"({"version": 4, "destination": "a.dmg", "size": "12", "checksum": "00"})");
  EXPECT_EQ(meta.version, std::nullopt);
  EXPECT_EQ(meta.destination, "a.dmg");
  EXPECT_EQ(meta.size, std::nullopt);
  EXPECT_EQ(meta.checksum, "00");
}

TEST(PackageMeta, LosesOnlyTheFieldWhoseValueCannotBeHeld) {
  const auto meta = decoded(
      R"({"product": "\ud800", "size": 1e400, "unknown": [1e400, {"\ud800": 1}], "destination": "a.dmg"})");
  PackageMeta expected;
  expected.destination = "a.dmg";
  EXPECT_EQ(meta, expected);
}

TEST(PackageMeta, TakesASizeOnlyWhenItIsAWholeNumberAboveZero) {
  const struct {
    const char* written;
    std::optional<std::int64_t> size;
  } rows[] = {
      {"1", 1},
      {"0", std::nullopt},
      {"-4", std::nullopt},
      {"\"12\"", std::nullopt},
      {"\"12345\"", std::nullopt},
      {"1.5", std::nullopt},
      {"true", std::nullopt},
      {"null", std::nullopt},
      {"9223372036854775807", INT64_MAX},
      {"9223372036854775808", std::nullopt},
      {"18446744073709551615", std::nullopt},
      {"99999999999999999999999", std::nullopt},
      {"1e300", std::nullopt},
      {"1e400", std::nullopt},
      {"-1e400", std::nullopt},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(decoded("{\"size\": " + std::string{row.written} + "}").size, row.size) << row.written;
  }
}

TEST(PackageMeta, FallsBackToTheOlderNameOfTheChecksum) {
  const struct {
    const char* text;
    std::optional<std::string> checksum;
  } rows[] = {
      {R"({"checksum": "aa", "sha256": "bb"})", "aa"},     {R"({"checksum": "", "sha256": "bb"})", "bb"},
      {R"({"checksum": 12, "sha256": "bb"})", "bb"},       {R"({"sha256": "bb"})", "bb"},
      {R"({"checksum": "", "sha256": ""})", std::nullopt}, {R"({"checksum": "aa", "sha256": 3})", "aa"},
  };
  for (const auto& row : rows) EXPECT_EQ(decoded(row.text).checksum, row.checksum) << row.text;
}

TEST(PackageMeta, KeepsDigestAndAlgorithmAsWritten) {
  const auto meta = decoded(R"({"checksum": " AbC ", "checksumAlgorithm": "Sha256"})");
  EXPECT_EQ(meta.checksum, " AbC ");
  EXPECT_EQ(meta.checksumAlgorithm, "Sha256");
}

TEST(PackageMeta, TellsVerifiableFromUnsupportedFromNoChecksum) {
  const struct {
    const char* text;
    bool verifiable;
    bool unsupported;
  } rows[] = {
      {R"({})", false, false},
      {R"({"checksumAlgorithm": "md5"})", false, false},
      {R"({"checksum": "", "checksumAlgorithm": "md5"})", false, false},
      {R"({"checksum": "00"})", true, false},
      {R"({"checksum": "zzzz"})", true, false},
      {R"({"checksum": "00", "checksumAlgorithm": "SHA256"})", true, false},
      {R"({"checksum": "00", "checksumAlgorithm": ""})", true, false},
      {R"({"checksum": "00", "checksumAlgorithm": "sha512"})", false, true},
      {R"({"checksum": "00", "checksumAlgorithm": "sha-256"})", false, true},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(decoded(row.text).checksumIsVerifiable(), row.verifiable) << row.text;
    EXPECT_EQ(decoded(row.text).hasUnsupportedChecksum(), row.unsupported) << row.text;
  }
}

TEST(PackageMeta, DropsAnAlternateAddressThatDoesNotParseAndKeepsTheRest) {
  const auto meta = decoded(R"({"alternateDownloadUrl": "https://cdn kelo/ a.dmg", "version": "1.0"})");
  EXPECT_EQ(meta.alternateDownloadURL, std::nullopt);
  EXPECT_EQ(meta.version, "1.0");
}

TEST(PackageMetaIndex, KeepsGoodEntriesBesideBadOnes) {
  const auto index = PackageMeta::decodeIndex(
      R"({"good": {"destination": "a.dmg"}, "array": [], "text": "a.dmg", "number": 3, "nothing": null,
          "poor": {"destination": 3}})");
  ASSERT_EQ(index.size(), 2U);
  EXPECT_EQ(index.at("good").destination, "a.dmg");
  EXPECT_EQ(index.at("poor"), PackageMeta{});
}

TEST(PackageMetaIndex, KeepsEveryChecksumBesideAValueThatCannotBeHeld) {
  const auto index = PackageMeta::decodeIndex(
      R"({"one": {"destination": "a.dmg", "checksum": "aa", "size": 1e400},
          "\ud800": {"destination": "b.dmg", "checksum": "bb", "product": "\udc00"}})");
  ASSERT_EQ(index.size(), 2U);
  EXPECT_EQ(index.at("one").checksum, "aa");
  EXPECT_EQ(index.at(R"(\ud800)").checksum, "bb");
}

TEST(PackageMetaIndex, IsEmptyWhenTheWholeCannotBeRead) {
  for (const auto* const text : {"", "[]", "[{\"destination\": \"a.dmg\"}]", "null", "{\"a\": {}", "\"\""}) {
    EXPECT_TRUE(PackageMeta::decodeIndex(text).empty()) << text;
  }
}

}  // namespace
}  // namespace installer
