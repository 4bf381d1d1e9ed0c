#include "support/MachinePlaces.h"

#include "Base/POSIX/LinuxHostSettings.h"

namespace lab {

namespace fs = std::filesystem;

OrReason<fs::path> machineRoot() {
  std::error_code error;
  const fs::path self = fs::read_symlink("/proc/self/exe", error);
  if (error) return because("/proc/self/exe: {}", error.message());
  const auto settings = installer::LinuxHostSettings::read(self.parent_path().parent_path().string());
  if (!settings) return std::unexpected(settings.error().localizedDescription);
  return fs::path{settings->root}.lexically_normal();
}

fs::path applicationRegistryOf(const fs::path& root) {
  return root / "Library/LaunchServices/registered-applications.json";
}

}  // namespace lab
