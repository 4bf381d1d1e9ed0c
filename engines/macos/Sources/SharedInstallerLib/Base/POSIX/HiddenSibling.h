// A hidden name beside an item, under which a copy grows or a removal goes on, so that the item's own name
// never holds half of anything. It tells which process works there, so that leftovers can be known.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace installer {

// What the hidden names are for, as it stands in them.
inline constexpr auto copyPurpose = "kelo-copy";
inline constexpr auto removalPurpose = "kelo-remove";

// One name beside `name` in the open directory `folder`. Claimed from construction to destruction; what
// stands under it is its user's business. Any thread; claims of one process differ.
class HiddenSibling {
 public:
  // `purpose` is part of the name: ".{name}.{purpose}-{process}". Clears the leftovers of `name` first.
  HiddenSibling(int folder, const std::string& name, const char* purpose);
  HiddenSibling(const HiddenSibling&) = delete;
  HiddenSibling& operator=(const HiddenSibling&) = delete;
  ~HiddenSibling();

  const char* name() const { return claimed_.c_str(); }

 private:
  std::string claimed_;
};

// True for a process that exists, another user's included.
bool isRunning(pid_t process);

// The process whose number follows `prefix` in the name of its unfinished work, and what comes after it.
struct NameOfWork {
  pid_t process = 0;
  std::string_view rest;

  static std::optional<NameOfWork> parse(std::string_view name, std::string_view prefix);
};

// Removes the hidden siblings of `name` in the open directory `folder`, of any purpose, whose process is
// gone. Best effort; true when something was removed.
bool clearLeftovers(int folder, const std::string& name);

}  // namespace installer
