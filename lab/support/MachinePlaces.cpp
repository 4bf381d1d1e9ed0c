#include "support/MachinePlaces.h"

#include "nlohmann/json.hpp"

#include "support/Files.h"

namespace lab {

OrReason<fs::path> machineRootFrom(const fs::path& settings) {
  const auto text = readFile(settings);
  if (!text) return std::unexpected(text.error());
  const auto json = nlohmann::json::parse(*text, nullptr, false);
  const auto* root =
      json.is_object() && json.contains("root") ? json["root"].get_ptr<const std::string*>() : nullptr;
  if (root == nullptr || root->empty()) return because("{}: no usable \"root\"", settings.string());
  return (settings.parent_path() / *root).lexically_normal();
}

OrReason<fs::path> machineRoot() {
  std::error_code error;
  const fs::path self = fs::read_symlink("/proc/self/exe", error);
  if (error) return because("/proc/self/exe: {}", error.message());
  return machineRootFrom(self.parent_path().parent_path() / "linux_host.json");
}

}  // namespace lab
