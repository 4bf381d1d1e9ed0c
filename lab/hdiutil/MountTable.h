// The disk images attached to this machine, in the hidden folder `Volumes/.hdiutil`.
//
// The table is a file under a lock, so that several programs can attach and detach at once. An entry whose
// mount point is gone is dropped at the next read.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "support/OrReason.h"

namespace lab {

struct Mount {
  std::string image;       // absolute path
  std::string mountPoint;  // absolute path
  std::string disk;        // "/dev/disk4"
  std::string volumeKind;  // "hfs", "apfs"
  std::string imageFile;   // identifies the file, unlike another one at its path
};

class MountTable {
 public:
  // Creates the missing folders.
  static OrReason<MountTable> open(const std::filesystem::path& volumes);

  OrReason<std::vector<Mount>> mounts() const;

  // Calls `change` with the current entries under the lock and stores the result, unless it fails.
  OrReason<> update(const std::function<OrReason<>(std::vector<Mount>&)>& change) const;

  // A new empty hidden folder on the volumes' file system, for the purpose "attaching" or "detaching". Also
  // removes the folders of ended processes.
  OrReason<std::filesystem::path> workingFolder(const std::string& purpose) const;

  const std::filesystem::path& volumes() const { return volumes_; }

 private:
  explicit MountTable(std::filesystem::path volumes);

  std::vector<Mount> load() const;
  OrReason<> store(const std::vector<Mount>& mounts) const;

  std::filesystem::path volumes_;
  std::filesystem::path folder_;
};

}  // namespace lab
