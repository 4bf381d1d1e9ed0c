// Runs each target on every input of its corpus. A broken law ends the program.
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iostream>
#include <iterator>

#include "Targets.h"

namespace installer::test {
namespace {

namespace fs = std::filesystem;

class Corpus : public testing::TestWithParam<FuzzTarget> {};

TEST_P(Corpus, BreaksNoLaw) {
  int inputs = 0;
  for (const auto& entry : fs::directory_iterator{fs::path{KELO_FUZZING_CORPUS} / GetParam().name}) {
    std::cout << entry.path() << std::endl;  // the last one is the input that ended the program
    std::ifstream file{entry.path(), std::ios::binary};
    GetParam().run(std::string{std::istreambuf_iterator<char>{file}, {}});
    ++inputs;
  }
  EXPECT_GT(inputs, 0);
}

INSTANTIATE_TEST_SUITE_P(Fuzzing, Corpus, testing::ValuesIn(fuzzTargets().begin(), fuzzTargets().end()),
                         [](const auto& target) { return std::string{target.param.name}; });

TEST(Corpora, HaveATargetEach) {
  const auto folders = std::distance(fs::directory_iterator{KELO_FUZZING_CORPUS}, fs::directory_iterator{});
  EXPECT_EQ(static_cast<std::size_t>(folders), fuzzTargets().size());
}

}  // namespace
}  // namespace installer::test
