// Running applications by way of /proc: a process whose executable lies in the "Contents/MacOS" of a bundle
// is an instance of that bundle. Scripts count by the script's own place.
//
// A machine ends at its root: what runs from a bundle outside belongs to another machine, of which there may
// be several on one box, and is neither found nor ended here.
//
// Seen are the processes of the current user, or everybody's for root; never this process itself, and never
// one that has ended and only waits to be collected.
#pragma once

#include <utility>

#include "Base/Path.h"
#include "Platform/RunningApplications.h"

namespace installer {

class Bundles;

class LinuxRunningApplications : public RunningApplications {
 public:
  // `bundles` outlives this. `root` is a path without links in it.
  LinuxRunningApplications(Bundles& bundles, Path root) : bundles_{bundles}, root_{std::move(root)} {}

  // A bundle says who it is by its Info.plist as it is now; one that is gone from the disk says nothing.
  std::vector<RunningApplication> instances(const std::string& bundleIdentifier) override;
  void terminate(const RunningApplication& application) override;       // SIGTERM
  void forceTerminate(const RunningApplication& application) override;  // SIGKILL

 private:
  Bundles& bundles_;
  const Path root_;
};

}  // namespace installer
