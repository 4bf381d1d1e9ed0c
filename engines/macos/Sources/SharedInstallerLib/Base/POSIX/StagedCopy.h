// A copy that grows under a hidden name beside its destination and takes the destination's name at its end.
#pragma once

#include <string>

#include "Base/POSIX/HiddenSibling.h"

namespace installer {

// One copy to `name` in the open directory `folder`, which outlives it. Clears the leftovers of `name` first.
// Destruction removes what wasn't committed. Any thread; two copies to the same name may run at once, and the
// first to commit wins.
class StagedCopy {
 public:
  StagedCopy(int folder, const std::string& name);
  StagedCopy(const StagedCopy&) = delete;
  StagedCopy& operator=(const StagedCopy&) = delete;
  ~StagedCopy();

  const char* stagingName() const { return sibling_.name(); }

  // Gives the copy its real name once its bytes are on the disk. False with errno set: EEXIST when something
  // stands there.
  bool commit();

 private:
  int folder_;
  std::string name_;
  HiddenSibling sibling_;
  bool committed_ = false;
};

}  // namespace installer
