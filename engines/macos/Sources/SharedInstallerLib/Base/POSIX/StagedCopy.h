// A copy that is written under a hidden name beside its destination and renamed when it is complete.
#pragma once

#include <string>
#include <sys/stat.h>

#include "Base/POSIX/HiddenSibling.h"

namespace installer {

// One copy to `name` in the open directory `folder`, which outlives it. Clears the leftovers of `name` first.
// The destructor removes an uncommitted copy. Any thread; two copies to the same name may run at once, and
// the first commit wins.
class StagedCopy {
 public:
  StagedCopy(int folder, const std::string& name);
  StagedCopy(const StagedCopy&) = delete;
  StagedCopy& operator=(const StagedCopy&) = delete;
  ~StagedCopy();

  const char* stagingName() const { return sibling_.name(); }

  // Flushes the copy `made` to disk and gives it its final name. False with errno set: EEXIST when the name
  // exists, also when it has another item afterwards because the staging name was replaced.
  bool commit(const struct stat& made);

 private:
  int folder_;
  std::string name_;
  HiddenSibling sibling_;
  bool committed_ = false;
};

}  // namespace installer
