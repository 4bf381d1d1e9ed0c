#include "Base/POSIX/StagedCopy.h"

#include <cerrno>

#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/VolumeCalls.h"

namespace installer {

StagedCopy::StagedCopy(int folder, const std::string& name)
    : folder_{folder}, name_{name}, sibling_{folder, name, kCopyPurpose} {
}

StagedCopy::~StagedCopy() {
  const int kept = errno;
  if (!committed_) (void)removeTree(folder_, stagingName(), TreeOwner::ours);
  errno = kept;
}

bool StagedCopy::commit(const struct stat& made) {
  // Flushes the bytes before the rename: after a loss of power the disk can have the new name without the
  // bytes written before it.
  if (!flushTree(folder_, stagingName())) return false;
  committed_ = renameWithoutReplacing(folder_, stagingName(), folder_, name_.c_str());
  if (!committed_) return false;
  // Flushes the name too, because the caller may rely on it: a move then removes the original.
  flushFolder(folder_);
  const auto found = linkStatus(folder_, name_.c_str());
  if (found && found->st_dev == made.st_dev && found->st_ino == made.st_ino) return true;
  errno = EEXIST;
  return false;
}

}  // namespace installer
