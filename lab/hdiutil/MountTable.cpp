#include "hdiutil/MountTable.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "nlohmann/json.hpp"

#include "Base/JSONReader.h"
#include "Base/POSIX/FileDescriptor.h"
#include "support/Files.h"

namespace lab {
namespace {

using Json = nlohmann::json;

OrReason<installer::FileDescriptor> lock(const fs::path& file) {
  installer::FileDescriptor descriptor{open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)};
  if (!descriptor) return becauseOfErrno(file.string());
  while (flock(descriptor.get(), LOCK_EX) != 0) {
    if (errno != EINTR) return becauseOfErrno(file.string());
  }
  return descriptor;
}

bool isMountPoint(const std::string& path) {
  struct stat status{};
  return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::string textOf(const Json& object, const char* key) {
  return installer::JSONReader::string(object, key).value_or("");
}

}  // namespace

MountTable::MountTable(fs::path volumes) : volumes_(std::move(volumes)), folder_(volumes_ / ".hdiutil") {
}

OrReason<MountTable> MountTable::open(const fs::path& volumes) {
  std::error_code error;
  MountTable table{fs::weakly_canonical(volumes, error)};
  if (!error) fs::create_directories(table.folder_, error);
  if (error) return because("{}: {}", volumes.string(), error.message());
  return table;
}

std::vector<Mount> MountTable::load() const {
  const auto text = readFile(folder_ / "mounts.json");
  const Json entries = text ? Json::parse(*text, nullptr, false) : Json::array();
  std::vector<Mount> mounts;
  if (!entries.is_array()) return mounts;
  for (const Json& entry : entries) {
    if (!entry.is_object()) continue;
    Mount mount{textOf(entry, "image"), textOf(entry, "mountPoint"), textOf(entry, "disk"),
                textOf(entry, "volumeKind"), textOf(entry, "imageFile")};
    if (isMountPoint(mount.mountPoint)) mounts.push_back(std::move(mount));
  }
  return mounts;
}

OrReason<> MountTable::store(const std::vector<Mount>& mounts) const {
  Json entries = Json::array();
  for (const Mount& mount : mounts) {
    entries.push_back({{"image", mount.image},
                       {"mountPoint", mount.mountPoint},
                       {"disk", mount.disk},
                       {"volumeKind", mount.volumeKind},
                       {"imageFile", mount.imageFile}});
  }
  return writeFile(folder_ / "mounts.json",
                   entries.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
}

OrReason<std::vector<Mount>> MountTable::mounts() const {
  const auto locked = lock(folder_ / "lock");
  if (!locked) return handOn(locked);
  return load();
}

OrReason<> MountTable::update(const std::function<OrReason<>(std::vector<Mount>&)>& change) const {
  const auto locked = lock(folder_ / "lock");
  if (!locked) return handOn(locked);
  std::vector<Mount> mounts = load();
  const auto changed = change(mounts);
  return changed ? store(mounts) : changed;
}

OrReason<fs::path> MountTable::workingFolder(const std::string& purpose) const {
  for (const char* const prefix : {"attaching-", "detaching-"}) clearLeftovers(folder_, prefix);
  std::string folder = (folder_ / nameOfWork(purpose + "-")).string();
  if (mkdtemp(folder.data()) == nullptr) return becauseOfErrno(folder);
  return fs::path{folder};
}

}  // namespace lab
