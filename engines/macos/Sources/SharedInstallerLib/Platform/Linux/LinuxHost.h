// The Linux machine: every service of the seam on real files, processes, sockets and signals.
//
// A host owns its services. Its destructor waits for the posted blocks and stops timers; only tests destroy a
// host. Its constructor creates the missing folders of `settings`, ignores SIGPIPE and makes the calling
// thread the main thread.
//
// The host of this process (`makeHostMachine`) finds the resources from the executable's own path:
// ".../X.app/Contents/MacOS/name" has ".../X.app/Contents/Resources", a bare executable has its own folder.
#pragma once

#include <memory>
#include <optional>

#include "Base/POSIX/LinuxHostSettings.h"
#include "Base/Path.h"

namespace installer {

struct Machine;

class LinuxHost {
 public:
  // `resources` is the executable's folder of resources; absent when it has none.
  LinuxHost(const LinuxHostSettings& settings, std::optional<Path> resources);
  ~LinuxHost();
  LinuxHost(const LinuxHost&) = delete;
  LinuxHost& operator=(const LinuxHost&) = delete;

  // Valid as long as the host exists. The caller installs it.
  Machine& machine();

 private:
  struct Services;
  std::unique_ptr<Services> services_;
};

// The exit status of a process whose `linux_host.json` is invalid. It differs from all results of a run.
inline constexpr int kMalformedHostSettings = 78;

}  // namespace installer
