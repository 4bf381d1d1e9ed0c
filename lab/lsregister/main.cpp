// lsregister: registers applications with the machine, unregisters them, and lists them.
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "Base/POSIX/ApplicationRegistry.h"
#include "support/BundleInfo.h"
#include "support/MachinePlaces.h"

namespace {

namespace fs = std::filesystem;
using installer::ApplicationRegistry;

constexpr const char* kUsage = R"(usage: lsregister -f PATH...   register application bundles
       lsregister -u PATH...   unregister them; an unregistered path is a success
       lsregister -dump        show the list
)";

// Resolves the links of the existing part of the path, so that a bundle is registered under one path.
std::string known(const std::string& path) {
  std::error_code error;
  const fs::path resolved = fs::weakly_canonical(fs::absolute(path), error);
  return error ? path : resolved.string();
}

int complain(const std::string& text) {
  fmt::print(stderr, "lsregister: {}\n", text);
  return 1;
}

int add(ApplicationRegistry& registry, const std::string& path) {
  const auto identifier = lab::bundleString(path, "CFBundleIdentifier");
  if (!identifier) return complain(path + ": no bundle with an identifier");
  const auto added = registry.add({known(path), *identifier});
  return added ? 0 : complain(added.error().localizedDescription);
}

int remove(ApplicationRegistry& registry, const std::string& path) {
  const auto removed = registry.remove(known(path));
  return removed ? 0 : complain(removed.error().localizedDescription);
}

int dump(const ApplicationRegistry& registry) {
  for (const auto& [path, identifier] : registry.applications()) {
    fmt::print("path:       {}\nidentifier: {}\n\n", path, identifier);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  const std::string verb = words.empty() ? "" : words[0];
  if (verb == "--help" || verb == "-h") {
    fmt::print("{}", kUsage);
    return 0;
  }
  const bool takesPaths = verb == "-f" || verb == "-u";
  if ((takesPaths && words.size() < 2) || (!takesPaths && (verb != "-dump" || words.size() > 1))) {
    fmt::print(stderr, "{}", kUsage);
    return 1;
  }
  const auto machine = lab::machine();
  if (!machine) return complain(machine.error());
  ApplicationRegistry registry{machine->applicationRegistry()};
  if (verb == "-dump") return dump(registry);
  int status = 0;
  for (std::size_t i = 1; i < words.size(); ++i) {
    status |= verb == "-f" ? add(registry, words[i]) : remove(registry, words[i]);
  }
  return status;
}
