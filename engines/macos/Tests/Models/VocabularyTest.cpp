#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "Models/Vocabulary.h"
#include "Utils/RunExitCode.h"

namespace installer {
namespace {

using ::testing::UnorderedElementsAreArray;

class Vocabulary : public ::testing::Test {
 protected:
  nlohmann::json published = nlohmann::json::parse(std::ifstream{KELO_VOCABULARY_FILE});

  template <class Value>
  void expectSameWords(const std::string& kind) {
    std::vector<std::string> words;
    for (const auto& row : kWireTable<Value>) words.emplace_back(row.word);
    std::vector<std::string> names;
    for (const auto& row : published.at(kind)) names.push_back(row.at("name"));
    EXPECT_THAT(words, UnorderedElementsAreArray(names)) << kind;
    for (const auto& name : names) {
      const auto value = fromRawValue<Value>(name);
      EXPECT_TRUE(value && rawValue(*value) == name) << name;
    }
  }
};

TEST_F(Vocabulary, HasTheWordsThatArePublished) {
  expectSameWords<Action>("actions");
  expectSameWords<AppStatus>("statuses");
  expectSameWords<ErrorCode>("errorCodes");
  expectSameWords<EventLevel>("levels");
  expectSameWords<AppStage>("stages");
  expectSameWords<PackageSourceMode>("modes");
  expectSameWords<CopySource>("sources");
  expectSameWords<Capability>("capabilities");
  expectSameWords<RetirementReason>("retirementReasons");
}

TEST_F(Vocabulary, CountsThePublishedSuccessesAsSuccess) {
  std::vector<std::string> successes;
  for (const auto& row : published.at("statuses")) {
    if (row.at("success")) successes.push_back(row.at("name"));
  }
  EXPECT_THAT(RunExitCode::successStatuses, UnorderedElementsAreArray(successes));
}

TEST_F(Vocabulary, GivesEachStageItsPublishedDetailCode) {
  for (const auto& row : published.at("stages")) {
    EXPECT_EQ(detailCode(fromRawValue<AppStage>(row.at("name").get<std::string>()).value()),
              row.at("detailCode").get<std::string>());
  }
}

TEST_F(Vocabulary, HasTheExitCodesThatArePublished) {
  const std::vector<std::pair<std::string, ExitCode>> codes{
      {"success", ExitCode::success},
      {"partialSuccess", ExitCode::partialSuccess},
      {"fullFailure", ExitCode::fullFailure},
      {"invalidArguments", ExitCode::invalidArguments},
      {"permissionDenied", ExitCode::permissionDenied},
      {"networkFailure", ExitCode::networkFailure},
  };
  std::vector<std::pair<std::string, ExitCode>> listed;
  for (const auto& row : published.at("exitCodes")) {
    listed.emplace_back(row.at("name"), ExitCode{row.at("code").get<std::int32_t>()});
  }
  EXPECT_EQ(listed, codes);
}

TEST_F(Vocabulary, MatchesWordsExactly) {
  for (const auto* const word : {"", "Install", "install ", "instal", "UPDATE"}) {
    EXPECT_EQ(fromRawValue<Action>(word), std::nullopt) << word;
  }
}

}  // namespace
}  // namespace installer
