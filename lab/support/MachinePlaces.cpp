#include "support/MachinePlaces.h"

#include <filesystem>

namespace lab {

namespace fs = std::filesystem;

OrReason<installer::LinuxHostSettings> machine() {
  const fs::path self = installer::executablePath();
  if (self.empty()) return becauseOfErrno("/proc/self/exe");
  auto settings = installer::LinuxHostSettings::read(self.parent_path().parent_path().string());
  if (!settings) return std::unexpected(settings.error().localizedDescription);
  settings->root = fs::path{settings->root}.lexically_normal().string();
  return *std::move(settings);
}

}  // namespace lab
