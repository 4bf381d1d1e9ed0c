#include "Base/POSIX/StagedCopy.h"

#include <cerrno>

#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/VolumeCalls.h"

namespace installer {

StagedCopy::StagedCopy(int folder, const std::string& name)
    : folder_{folder}, name_{name}, sibling_{folder, name, copyPurpose} {
}

StagedCopy::~StagedCopy() {
  const int kept = errno;
  if (!committed_) (void)removeTree(folder_, stagingName(), TreeOwner::ours);
  errno = kept;
}

bool StagedCopy::commit() {
  // The bytes before the name: on a disk that loses power a name can survive without the bytes that were
  // written first.
  if (!flushVolume(folder_)) return false;
  committed_ = renameWithoutReplacing(folder_, stagingName(), folder_, name_.c_str());
  // And the name before anybody relies on it, such as a move that removes the original next.
  if (committed_) flushFolder(folder_);
  return committed_;
}

}  // namespace installer
