#include "support/MachinePlaces.h"

#include <pwd.h>
#include <unistd.h>

#include "nlohmann/json.hpp"

#include "support/Files.h"

namespace lab {
namespace {

fs::path defaultRoot() {
  const passwd* const user = getpwuid(getuid());
  const fs::path home = user != nullptr && user->pw_dir != nullptr ? user->pw_dir : "/";
  return home / ".local/share/Kelo-Desk-Installer";
}

}  // namespace

OrReason<fs::path> machineRootFrom(const fs::path& settings) {
  if (!stands(settings)) return defaultRoot();
  const auto text = readFile(settings);
  if (!text) return std::unexpected(text.error());
  const auto json = nlohmann::json::parse(*text, nullptr, false);
  if (!json.is_object()) return because("{}: it isn't a JSON object", settings.string());
  const auto root = json.find("root");
  if (root == json.end()) return defaultRoot();
  const auto* path = root->get_ptr<const std::string*>();
  if (path == nullptr || path->empty()) return because("{}: root: it must be a path", settings.string());
  return (settings.parent_path() / *path).lexically_normal();
}

OrReason<fs::path> machineRoot() {
  std::error_code error;
  const fs::path self = fs::read_symlink("/proc/self/exe", error);
  if (error) return because("/proc/self/exe: {}", error.message());
  return machineRootFrom(self.parent_path().parent_path() / "linux_host.json");
}

fs::path applicationRegistryOf(const fs::path& root) {
  return root / "Library/LaunchServices/registered-applications.json";
}

}  // namespace lab
