// A hidden name beside an item, under which a copy grows or a removal goes on, so that the item's own name
// never holds half of anything. It tells which process works there, so that leftovers can be known.
#pragma once

#include <string>

namespace installer {

// What the hidden names are for, as it stands in them.
inline constexpr auto copyPurpose = "kelo-copy";
inline constexpr auto removalPurpose = "kelo-remove";

// One name beside `name` in the open directory `folder`, which outlives it. Claimed from construction to
// destruction; what stands under it is its user's business. Any thread; claims of one process differ.
class HiddenSibling {
 public:
  // `purpose` is part of the name: ".{name}.{purpose}-{process}".
  HiddenSibling(int folder, const std::string& name, const char* purpose);
  HiddenSibling(const HiddenSibling&) = delete;
  HiddenSibling& operator=(const HiddenSibling&) = delete;
  ~HiddenSibling();

  const char* name() const { return claimed_.c_str(); }

  // Removes what work of the same purpose on the same item left behind whose process is gone. Best effort.
  void clearLeftovers() const;

 private:
  int folder_;
  std::string prefix_;
  std::string claimed_;  // `prefix_`, our process and, when that is taken, a number

  bool isLeftover(const std::string& entry) const;
};

}  // namespace installer
