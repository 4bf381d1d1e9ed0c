// The Linux machine: every service of the seam on real files, processes, sockets and signals.
//
// A host owns its services. Destroying it waits for the blocks that were posted and drops timers; only tests
// do that. Its constructor makes the folders of `settings` that are missing, ignores SIGPIPE and makes the
// calling thread the main thread.
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
  // `resources` is the folder that travels with the executable; absent when it has none.
  LinuxHost(const LinuxHostSettings& settings, std::optional<Path> resources);
  ~LinuxHost();
  LinuxHost(const LinuxHost&) = delete;
  LinuxHost& operator=(const LinuxHost&) = delete;

  // As long as the host lives. The caller installs it.
  Machine& machine();

 private:
  struct Services;
  std::unique_ptr<Services> services_;
};

// The exit status of a process whose `linux_host.json` is invalid. It is no status of the
// engine's own, so that it can't be mistaken for the result of a run.
inline constexpr int kMalformedHostSettings = 78;

}  // namespace installer
