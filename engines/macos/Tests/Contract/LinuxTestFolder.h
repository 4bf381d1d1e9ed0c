// A folder of its own for each test of the Linux host, and children to do what a test must not do itself.
#pragma once

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "Base/Path.h"

namespace installer::test {

// Removed with everything in it at destruction. Open to every user, so that a child without rights gets in.
class LinuxTestFolder {
 public:
  LinuxTestFolder();
  LinuxTestFolder(const LinuxTestFolder&) = delete;
  LinuxTestFolder& operator=(const LinuxTestFolder&) = delete;
  ~LinuxTestFolder();

  const Path& path() const { return path_; }
  Path operator/(const std::string& name) const { return joined(path_, name); }

  Path makeFolder(const std::string& name) const;  // with the folders above it
  // A file with its folders; executable when it begins with "#!".
  Path write(const std::string& name, const std::string& text) const;
  // A bundle whose Info.plist says `identifier` and `name`; gives its path.
  Path makeBundle(const std::string& name, const std::string& identifier, const std::string& title) const;

 private:
  Path path_;
};

std::string textOf(const Path& file);
std::vector<std::string> sortedNames(const Path& folder);

// Runs `body` in a child process and gives its exit status, 128 + the signal's number if one ended it.
int inChild(const std::function<int()>& body);
// The same without rights: as a user who owns nothing here. Tests run as root in a container and as an
// ordinary user elsewhere; both lead here to a user whom permissions bind.
int withoutRights(const std::function<int()>& body);

// Starts `body` in a child that the test ends or waits for itself.
pid_t startChild(const std::function<int()>& body);
int endOf(pid_t child);

// For a child that is to be killed at one point of its work: from here on SIGSYS ends it in the system call
// `number`, before the call does anything. False when the system doesn't offer this.
bool dieInSystemCall(long number);

}  // namespace installer::test
