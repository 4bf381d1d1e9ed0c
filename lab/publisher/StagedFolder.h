// A folder that is prepared under a hidden name and then replaces another one in one step.
//
// Readers see the old or the new folder, also when the process is killed, unless the file system can't
// exchange two folders (see commit()). The hidden sibling may then remain; the next publication to the same
// place removes it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "Base/POSIX/FileDescriptor.h"
#include "support/OrReason.h"

namespace lab {

class StagedFolder {
 public:
  // Creates the staged folder beside `folder`, whose parent must exist, with the files of `folder` except
  // those in `without`. They are hard links where the file system supports them. Only one staged folder can
  // exist per parent.
  static OrReason<StagedFolder> inPlaceOf(const std::filesystem::path& folder,
                                          const std::vector<std::string>& without);

  StagedFolder(StagedFolder&& other) noexcept = default;
  StagedFolder& operator=(StagedFolder&& other) = delete;
  StagedFolder(const StagedFolder&) = delete;
  StagedFolder& operator=(const StagedFolder&) = delete;
  // Removes an uncommitted folder.
  ~StagedFolder();

  const std::filesystem::path& path() const { return path_; }

  // Replaces `folder` by the staged folder. `last` is the file that refers to the others: where two folders
  // can't be exchanged in one step, the files are replaced one after the other, and `last` after them.
  OrReason<> commit(const std::string& last);

 private:
  StagedFolder(std::filesystem::path folder, std::filesystem::path path, installer::FileDescriptor lock)
      : folder_{std::move(folder)}, path_{std::move(path)}, lock_{std::move(lock)} {}

  std::filesystem::path folder_;
  std::filesystem::path path_;
  installer::FileDescriptor lock_;  // the locked parent; absent after a move

  OrReason<> takeOver(const std::vector<std::string>& without);
  OrReason<> replaceFileByFile(const std::string& last);
};

}  // namespace lab
