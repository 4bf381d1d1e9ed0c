// Selects the part of a long suite to run: the whole with the variable KELO_ALL, otherwise a sample.
// KELO_SEED, with the seed in a failure's message, repeats that sample.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <random>

namespace installer::test {

class Sample {
 public:
  bool isAll() const { return isAll_; }
  bool isRepeated() const { return std::getenv("KELO_SEED") != nullptr; }
  std::uint64_t seed() const { return seed_; }
  // True always for a whole suite, and for one in `of` calls for a sample.
  bool takes(unsigned of) { return isAll_ || random_() % of == 0; }

 private:
  static std::uint64_t chosenSeed() {
    const char* const text = std::getenv("KELO_SEED");
    return text != nullptr ? std::strtoull(text, nullptr, 10) : std::random_device{}();
  }

  bool isAll_ = std::getenv("KELO_ALL") != nullptr;
  std::uint64_t seed_ = chosenSeed();
  std::mt19937_64 random_{seed_};
};

}  // namespace installer::test
