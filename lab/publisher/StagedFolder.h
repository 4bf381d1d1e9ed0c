// A folder that is made ready out of sight and then takes another one's place in one step.
//
// Whatever ends the process meanwhile, readers see the folder as it was or as it is to be. What is left over
// is a hidden sibling, which the next publication to the same place clears.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "Base/POSIX/FileDescriptor.h"
#include "support/OrReason.h"

namespace lab {

class StagedFolder {
 public:
  // Stands beside `folder`, whose parent exists, and starts with its files but for those named in `without`.
  // They are the same files, not copies, where the file system allows it. Only one at a time can be made for
  // folders of one parent.
  static OrReason<StagedFolder> inPlaceOf(const std::filesystem::path& folder,
                                          const std::vector<std::string>& without);

  StagedFolder(StagedFolder&& other) noexcept = default;
  StagedFolder& operator=(StagedFolder&& other) = delete;
  StagedFolder(const StagedFolder&) = delete;
  StagedFolder& operator=(const StagedFolder&) = delete;
  // Removes what wasn't committed.
  ~StagedFolder();

  const std::filesystem::path& path() const { return path_; }

  // What was staged stands at `folder`; what stood there is gone. `last` names the file that speaks of the
  // others: where two folders can't be exchanged in one step, it comes behind them.
  OrReason<> commit(const std::string& last);

 private:
  StagedFolder(std::filesystem::path folder, std::filesystem::path path, installer::FileDescriptor lock)
      : folder_{std::move(folder)}, path_{std::move(path)}, lock_{std::move(lock)} {}

  std::filesystem::path folder_;
  std::filesystem::path path_;
  installer::FileDescriptor lock_;  // the parent, locked; absent once moved from

  OrReason<> takeOver(const std::vector<std::string>& without);
  OrReason<> replaceFileByFile(const std::string& last);
};

}  // namespace lab
