// Copies one tree entry by entry, by descriptor, following no link.
#pragma once

#include <string>
#include <sys/stat.h>

#include "Base/POSIX/FileDescriptor.h"

namespace installer {

class TreeCopier {
 public:
  // Copies `sourceName` of `sourceFolder` to the new entry `name` of `folder`. False with errno set; then a
  // part of the copy may be there.
  bool copy(int sourceFolder, const char* sourceName, int folder, const char* name);

  // What a failure was about: the item that is read or the one that is written.
  bool failedReading() const { return failedReading_; }

 private:
  bool failedReading_ = false;
  int depth_ = 0;  // folders that are being copied around the current entry
  bool topMade_ = false;
  struct stat top_{};  // the first directory made: it must not be met again on the side that is read

  bool copyFile(int sourceFolder, const char* sourceName, int folder, const char* name,
                const struct stat& status);
  bool copyLink(int sourceFolder, const char* sourceName, int folder, const char* name,
                const struct stat& status);
  bool copyFolder(int sourceFolder, const char* sourceName, int folder, const char* name,
                  const struct stat& status);
  bool copyContents(int source, int target);
  bool copyBytes(int source, int target);
  bool remember(int made);
  bool mayEnter(const struct stat& status) const;  // false with errno set
  bool notReadable();                              // notes that the failure is the source's; always false
};

}  // namespace installer
