#include "diskimage/SourceFolder.h"

#include <algorithm>
#include <map>

#include "support/Unicode.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

OrReason<> checkName(const fs::path& path) {
  const std::string name = path.filename().string();
  if (name.find(':') != std::string::npos) return because("{}: a name on HFS+ has no \":\"", path.string());
  if (name.find('\\') != std::string::npos)
    return because("{}: \"\\\" doesn't survive reading back", path.string());
  if (std::ranges::any_of(name, [](unsigned char c) { return c < 0x20 || c == 0x7f; })) {
    return because("{}: there are control characters in the name", path.parent_path().string());
  }
  return {};
}

// Adds the entry's folded name to `seen`.
OrReason<> checkDistinct(const fs::path& path, std::map<std::string, std::string>& seen) {
  const std::string name = path.filename().string();
  const auto folded = caseFolded(name);
  if (!folded) return because("{}: a name isn't UTF-8", path.parent_path().string());
  const auto [place, isNew] = seen.emplace(*folded, name);
  if (!isNew) return because("{}: \"{}\" is the same name on HFS+", path.string(), place->second);
  return {};
}

bool canBeKept(fs::file_type type) {
  return type == fs::file_type::regular || type == fs::file_type::directory || type == fs::file_type::symlink;
}

}  // namespace

OrReason<> checkSourceFolder(const fs::path& folder) {
  std::error_code error;
  std::map<std::string, std::string> seen;
  for (const auto& entry : fs::directory_iterator(folder, error)) {
    const auto type = entry.symlink_status().type();
    if (!canBeKept(type))
      return because("{}: only files, folders and links go into an image", entry.path().string());
    auto good = checkName(entry.path());
    if (good) good = checkDistinct(entry.path(), seen);
    if (good && type == fs::file_type::directory) good = checkSourceFolder(entry.path());
    if (!good) return good;
  }
  if (error) return because("{}: {}", folder.string(), error.message());
  return {};
}

}  // namespace lab
