// A hidden name beside an item for a copy or a removal in progress, so that the item's own name never has a
// partial tree. The name contains the process identifier, so that leftovers can be recognised: `NameOfWork`
// reads it, `isRunning` tests the process.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace installer {

// The purposes of the hidden names; part of the names.
inline constexpr auto kCopyPurpose = "kelo-copy";
inline constexpr auto kRemovalPurpose = "kelo-remove";
inline constexpr auto kWritePurpose = "kelo-write";

// A name beside `name` in the open directory `folder`, reserved from construction to destruction. The caller
// creates and removes the item with this name. Any thread; the reserved names of one process differ.
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

// True for a process that exists, also one of another user.
bool isRunning(pid_t process);

// The process identifier after `prefix` in the name of unfinished work, and the text after it.
struct NameOfWork {
  pid_t process = 0;
  std::string_view rest;

  static std::optional<NameOfWork> parse(std::string_view name, std::string_view prefix);
};

// Removes the hidden siblings of `name` in the open directory `folder`, of any purpose, whose process has
// ended; while this process holds the folder's lock, those of all other processes. Failures are ignored;
// true when something was removed.
bool clearLeftovers(int folder, const std::string& name);

}  // namespace installer
