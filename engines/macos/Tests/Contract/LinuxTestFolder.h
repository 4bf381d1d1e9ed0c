// A folder per test of the Linux host, and child processes for actions that a test must not do itself.
#pragma once

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "Base/Path.h"

namespace installer::test {

// Removed with its content at destruction. All users may enter it, so that a child without rights can use it.
class LinuxTestFolder {
 public:
  LinuxTestFolder();
  LinuxTestFolder(const LinuxTestFolder&) = delete;
  LinuxTestFolder& operator=(const LinuxTestFolder&) = delete;
  ~LinuxTestFolder();

  const Path& path() const { return path_; }
  Path operator/(const std::string& name) const { return joined(path_, name); }

  Path makeFolder(const std::string& name) const;  // and the missing folders above it
  // Writes a file and creates its folders; executable when `text` begins with "#!".
  Path write(const std::string& name, const std::string& text) const;
  // Makes a bundle whose Info.plist has `identifier` and `title`; returns its path.
  Path makeBundle(const std::string& name, const std::string& identifier, const std::string& title) const;

 private:
  Path path_;
};

std::string textOf(const Path& file);
std::vector<std::string> sortedNames(const Path& folder);

// Runs `body` in a child process and returns its exit status, 128 + the signal's number if one ended it.
int inChild(const std::function<int()>& body);
// The same without rights: as a user who owns nothing here. Tests may run as root or as an ordinary user;
// here permissions apply in both cases.
int withoutRights(const std::function<int()>& body);

// Starts `body` in a child process, which the test ends or waits for.
pid_t startChild(const std::function<int()>& body);
int endOf(pid_t child);

// Makes SIGSYS end this process at its next system call `number`, before the call has an effect. For a child
// that must be killed at a known point. False when the system doesn't support this.
bool dieInSystemCall(long number);

}  // namespace installer::test
