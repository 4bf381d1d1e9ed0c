// open: starts an application.
#include <cstdio>
#include <filesystem>
#include <string>

#include "Base/POSIX/ApplicationRegistry.h"
#include "open/Launch.h"
#include "support/BundleInfo.h"
#include "support/Files.h"
#include "support/MachinePlaces.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kUsage = R"(usage: open APPLICATION
Registers the application bundle and starts its main executable, detached. A running application is
started again.
)";

// Registers an opened bundle. A failure is reported but doesn't prevent the start.
void remember(const fs::path& bundle) {
  const auto machine = lab::machine();
  const auto identifier = lab::bundleString(bundle, "CFBundleIdentifier");
  if (!machine || !identifier) return;
  installer::ApplicationRegistry registry{machine->applicationRegistry()};
  const auto added = registry.add({bundle.string(), *identifier});
  if (!added) fmt::print(stderr, "open: {}\n", added.error().localizedDescription);
}

lab::OrReason<> openBundle(const fs::path& path) {
  if (!lab::itemExists(path)) return lab::because("The file {} does not exist.", fs::absolute(path).string());
  std::error_code error;
  const fs::path bundle = fs::canonical(path, error);
  if (error || !fs::is_directory(bundle)) return lab::because("{} isn't an application", path.string());
  const auto program = lab::mainExecutable(bundle);
  if (!program) return handOn(program);
  remember(bundle);
  return lab::launchDetached(*program);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string word = argc == 2 ? argv[1] : "";
  if (word == "--help" || word == "-h") {
    fmt::print("{}", kUsage);
    return 0;
  }
  if (word.empty() || word.starts_with('-')) {
    fmt::print(stderr, "{}", kUsage);
    return 1;
  }
  const auto opened = openBundle(word);
  if (opened) return 0;
  fmt::print(stderr, "open: {}\n", opened.error());
  return 1;
}
