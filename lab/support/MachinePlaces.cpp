#include "support/MachinePlaces.h"

#include <filesystem>
#include <system_error>

namespace lab {

namespace fs = std::filesystem;

OrReason<installer::LinuxHostSettings> machine() {
  std::error_code error;
  const fs::path self = fs::read_symlink("/proc/self/exe", error);
  if (error) return because("/proc/self/exe: {}", error.message());
  auto settings = installer::LinuxHostSettings::read(self.parent_path().parent_path().string());
  if (!settings) return std::unexpected(settings.error().localizedDescription);
  settings->root = fs::path{settings->root}.lexically_normal().string();
  return *std::move(settings);
}

}  // namespace lab
