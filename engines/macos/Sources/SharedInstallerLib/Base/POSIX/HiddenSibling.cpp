#include "Base/POSIX/HiddenSibling.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <fmt/format.h>
#include <set>
#include <unistd.h>

#include "Base/Mutex.h"
#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/ItemLock.h"

namespace installer {

namespace {

// The names in use by this process. Other names with our process identifier are leftovers of an earlier
// process with the same identifier.
struct ActiveNames {
  Mutex mutex;
  std::multiset<std::string> names GUARDED_BY(mutex);
};

ActiveNames& active() {
  static auto* const instance = new ActiveNames;  // not destroyed at exit: a worker may still be copying
  return *instance;
}

bool isActive(const std::string& name) {
  const MutexLock lock{active().mutex};
  return active().names.contains(name);
}

// Limits the length: a name may have 255 bytes, with the prefix and the suffix. No character is split,
// because some volumes refuse a name that isn't UTF-8.
std::string shortened(const std::string& name) {
  constexpr std::size_t longest = 200;
  if (name.size() <= longest) return name;
  std::size_t end = longest;
  while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0U) == 0x80U) --end;
  return name.substr(0, end);
}

// The prefix of the names of `purpose` beside `name`. Our process identifier follows, and a number if that
// name is taken.
std::string prefixOf(const std::string& name, const char* purpose) {
  return fmt::format(".{}.{}-", shortened(name), purpose);
}

std::string claimName(const std::string& prefix) {
  const MutexLock lock{active().mutex};
  std::string name = fmt::format("{}{}", prefix, ::getpid());
  for (int number = 1; active().names.contains(name); ++number) {
    name = fmt::format("{}{}.{}", prefix, ::getpid(), number);
  }
  active().names.insert(name);
  return name;
}

// True when `entry` begins with `prefix` and isn't in use by a running process. The process number in a name
// may belong to another process now, so while this process holds the folder's lock (`isFolderOurs`) only its
// own names are in use.
bool isLeftover(const std::string& entry, const std::string& prefix, bool isFolderOurs) {
  const auto work = NameOfWork::parse(entry, prefix);
  if (!work || (!work->rest.empty() && work->rest.front() != '.')) return false;
  return work->process == ::getpid() ? !isActive(entry) : isFolderOurs || !isRunning(work->process);
}

}  // namespace

HiddenSibling::HiddenSibling(int folder, const std::string& name, const char* purpose) {
  (void)clearLeftovers(folder, name);
  claimed_ = claimName(prefixOf(name, purpose));
}

HiddenSibling::~HiddenSibling() {
  const MutexLock lock{active().mutex};
  active().names.erase(active().names.find(claimed_));
}

bool isRunning(pid_t process) {
  return ::kill(process, 0) == 0 || errno == EPERM;
}

std::optional<NameOfWork> NameOfWork::parse(std::string_view name, std::string_view prefix) {
  if (!name.starts_with(prefix)) return std::nullopt;
  pid_t process = 0;
  const char* const end = name.data() + name.size();
  const auto [stop, error] = std::from_chars(name.data() + prefix.size(), end, process);
  if (error != std::errc{} || process <= 0) return std::nullopt;
  return NameOfWork{process, {stop, end}};
}

bool clearLeftovers(int folder, const std::string& name) {
  const auto entries = namesIn(folder);
  if (!entries) return false;
  const std::array prefixes{prefixOf(name, kCopyPurpose), prefixOf(name, kRemovalPurpose),
                            prefixOf(name, kWritePurpose)};
  const bool isFolderOurs = isLockedByUs(folder);
  bool cleared = false;
  for (const std::string& entry : *entries) {
    if (!std::ranges::any_of(prefixes,
                             [&](const auto& prefix) { return isLeftover(entry, prefix, isFolderOurs); }))
      continue;
    cleared = removeTree(folder, entry.c_str(), TreeOwner::ours) || cleared;
  }
  return cleared;
}

}  // namespace installer
