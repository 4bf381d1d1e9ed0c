#include "Platform/POSIX/HiddenSibling.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <fmt/format.h>
#include <mutex>
#include <set>
#include <unistd.h>

#include "Platform/POSIX/FileTree.h"

namespace installer {

namespace {

// The names that this process is using. A leftover under our own process identifier stems from an earlier
// process that bore the same number.
struct ActiveNames {
  std::mutex mutex;
  std::multiset<std::string> names;
};

ActiveNames& active() {
  static auto* const instance = new ActiveNames;  // not destroyed at exit: a worker may still be copying
  return *instance;
}

bool isActive(const std::string& name) {
  const std::lock_guard lock{active().mutex};
  return active().names.contains(name);
}

// A name may be 255 bytes long; what is put around it needs a few of them. No character is cut in two: some
// volumes refuse a name that isn't UTF-8.
std::string shortened(const std::string& name) {
  constexpr std::size_t longest = 200;
  if (name.size() <= longest) return name;
  std::size_t end = longest;
  while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0U) == 0x80U) --end;
  return name.substr(0, end);
}

std::string claimName(const std::string& prefix) {
  const std::lock_guard lock{active().mutex};
  std::string name = fmt::format("{}{}", prefix, ::getpid());
  for (int number = 1; active().names.contains(name); ++number) {
    name = fmt::format("{}{}.{}", prefix, ::getpid(), number);
  }
  active().names.insert(name);
  return name;
}

bool processLives(pid_t process) {
  return ::kill(process, 0) == 0 || errno == EPERM;
}

}  // namespace

HiddenSibling::HiddenSibling(int folder, const std::string& name, const char* purpose)
    : folder_{folder},
      prefix_{fmt::format(".{}.{}-", shortened(name), purpose)},
      claimed_{claimName(prefix_)} {
}

HiddenSibling::~HiddenSibling() {
  const std::lock_guard lock{active().mutex};
  active().names.erase(active().names.find(claimed_));
}

void HiddenSibling::clearLeftovers() const {
  const auto names = namesIn(folder_);
  if (!names) return;
  for (const std::string& entry : *names) {
    if (isLeftover(entry)) (void)removeTree(folder_, entry.c_str(), TreeOwner::ours);
  }
}

bool HiddenSibling::isLeftover(const std::string& entry) const {
  if (!entry.starts_with(prefix_)) return false;
  pid_t process = 0;
  const char* const end = entry.data() + entry.size();
  const auto [rest, error] = std::from_chars(entry.data() + prefix_.size(), end, process);
  if (error != std::errc{} || process <= 0 || (rest != end && *rest != '.')) return false;
  if (process == ::getpid()) return entry == claimed_ || !isActive(entry);
  return !processLives(process);
}

}  // namespace installer
