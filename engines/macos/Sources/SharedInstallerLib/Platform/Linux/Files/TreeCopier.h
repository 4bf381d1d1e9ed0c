// Copies one tree entry by entry, by descriptor, following no link. One thread at a time uses a copier.
#pragma once

#include <string>
#include <sys/stat.h>

#include "Base/POSIX/FileDescriptor.h"

namespace installer {

class TreeCopier {
 public:
  // Copies `sourceName` of `sourceFolder` to the new entry `name` of `folder`. False with errno set; then a
  // partial copy may remain.
  bool copy(int sourceFolder, const char* sourceName, int folder, const char* name);

  // The item that `copy` made.
  const struct stat& made() const { return top_; }

  // True when the failure was with the source, false when it was with the copy.
  bool failedReading() const { return failedReading_; }

 private:
  bool failedReading_ = false;
  int depth_ = 0;  // folders above the current entry, inside the copied tree
  bool topMade_ = false;
  struct stat top_{};  // the first item made; the source must not contain it

  bool copyFile(int sourceFolder, const char* sourceName, int folder, const char* name,
                const struct stat& status);
  bool copyLink(int sourceFolder, const char* sourceName, int folder, const char* name,
                const struct stat& status);
  bool copyFolder(int sourceFolder, const char* sourceName, int folder, const char* name,
                  const struct stat& status);
  bool copyContents(int source, int target);
  bool copyBytes(int source, int target);
  bool remember(int made, const char* name = "");  // the item itself, or the entry `name` of a folder
  bool mayEnter(const struct stat& status) const;  // false with errno set
  bool notReadable();                              // records that the failure is the source's; always false
};

}  // namespace installer
