#include <algorithm>
#include <array>
#include <cstdlib>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <string>

#include "Targets.h"

namespace installer::test {

namespace {

constexpr std::array kTargets{
    FuzzTarget{"AttachList", fuzzAttachList},
    FuzzTarget{"Configuration", fuzzConfiguration},
    FuzzTarget{"HTTPHead", fuzzHTTPHead},
    FuzzTarget{"InfoPlist", fuzzInfoPlist},
    FuzzTarget{"PackageIndex", fuzzPackageIndex},
    FuzzTarget{"PackageMeta", fuzzPackageMeta},
    FuzzTarget{"ProtocolCommandLine", fuzzProtocolCommandLine},
    FuzzTarget{"ReleaseNotes", fuzzReleaseNotes},
    FuzzTarget{"ShellQuoting", fuzzShellQuoting},
    FuzzTarget{"SilentCommandLine", fuzzSilentCommandLine},
    FuzzTarget{"StdinLines", fuzzStdinLines},
    FuzzTarget{"URLTrust", fuzzURLTrust},
    FuzzTarget{"VersionComparison", fuzzVersionComparison},
};

}  // namespace

std::span<const FuzzTarget> fuzzTargets() {
  return kTargets;
}

void fuzz(std::string_view name, std::span<const std::uint8_t> input) {
  GTEST_FLAG_SET(break_on_failure, true);  // a failure reported by a fake also ends the process
  const std::string text{input.begin(), input.end()};
  std::ranges::find(kTargets, name, &FuzzTarget::name)->run(text);
}

void require(bool holds, std::string_view law, const std::source_location& place) {
  if (holds) return;
  fmt::print(stderr, "{}:{}: broken law: {}\n", place.file_name(), place.line(), law);
  std::abort();
}

}  // namespace installer::test
