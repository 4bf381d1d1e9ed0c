#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Base/JSONReader.h"
#include "Models/ReleaseNotes.h"

namespace installer {
namespace {

TEST(ReleaseNotes, ReadsAndWritesTheSameKeys) {
  const std::string text = R"({"product": "Kelo Brenna", "version": "2.0", "releases": [
      {"version": "2.0", "date": "2026-01-02", "notes": ["One.", "Two."]}, {"version": "1.9", "notes": []}]})";
  const auto notes = ReleaseNotes::decode(text);
  ASSERT_TRUE(notes);
  const ReleaseNotes expected{
      "Kelo Brenna", "2.0", {{"2.0", "2026-01-02", {"One.", "Two."}}, {"1.9", std::nullopt, {}}}};
  EXPECT_EQ(*notes, expected);
  EXPECT_EQ(notes->encode(), Json::parse(text));
}

TEST(ReleaseNotes, LeavesAbsentFieldsOutWhenWriting) {
  const ReleaseNotes notes{std::nullopt, std::nullopt, {{"1.0", std::nullopt, {"First."}}}};
  EXPECT_EQ(notes.encode().dump(), R"({"releases":[{"notes":["First."],"version":"1.0"}]})");
  EXPECT_EQ(ReleaseNotes{}.encode().dump(), R"({"releases":[]})");
}

TEST(ReleaseNotes, IgnoresUnknownKeysAndTakesANullForAMissingOne) {
  const auto notes = ReleaseNotes::decode(
      R"({"product": null, "extra": 1, "releases": [{"version": "1", "date": null, "notes": [], "more": {}}]})");
  ASSERT_TRUE(notes);
  EXPECT_EQ(*notes, (ReleaseNotes{std::nullopt, std::nullopt, {{"1", std::nullopt, {}}}}));
}

TEST(ReleaseNotes, FailsAsAWholeOnAnyFault) {
  for (const auto* const text : {
           "",
           "[]",
           "{}",
           R"({"releases": null})",
           R"({"releases": {}})",
           R"({"releases": "none"})",
           R"({"releases": [1]})",
           R"({"releases": [{}]})",
           R"({"releases": [{"version": "1"}]})",
           R"({"releases": [{"notes": []}]})",
           R"({"releases": [{"version": null, "notes": []}]})",
           R"({"releases": [{"version": 1, "notes": []}]})",
           R"({"releases": [{"version": "1", "notes": "text"}]})",
           R"({"releases": [{"version": "1", "notes": [1]}]})",
           R"({"releases": [{"version": "1", "notes": ["a", null]}]})",
           R"({"releases": [{"version": "1", "notes": [], "date": 20260102}]})",
           R"({"releases": [{"version": "1", "notes": []}, {"version": "2"}]})",
           R"({"product": 1, "releases": []})",
           R"({"version": [], "releases": []})",
           R"({"releases": []} trailing)",
       }) {
    EXPECT_EQ(ReleaseNotes::decode(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace installer
