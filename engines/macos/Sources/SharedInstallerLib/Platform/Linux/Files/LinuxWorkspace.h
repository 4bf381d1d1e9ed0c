// Registered applications, kept in a file of the machine's Library. An application that somebody laid into
// the folder by hand isn't known until it is registered.
#pragma once

#include "Base/POSIX/ApplicationRegistry.h"
#include "Platform/Workspace.h"

namespace installer {

class Bundles;

class LinuxWorkspace : public Workspace {
 public:
  // `bundles` outlives this.
  LinuxWorkspace(Path registryFile, Bundles& bundles)
      : registry_{std::move(registryFile)}, bundles_{bundles} {}

  // Of several bundles the one registered last among those that still exist, else the stale one registered
  // last.
  std::optional<Path> applicationPath(const std::string& bundleIdentifier) override;
  // A bundle without an identifier can't be registered, and what was known of its path is forgotten.
  void registerBundle(const Path& path) override;

 private:
  ApplicationRegistry registry_;
  Bundles& bundles_;
};

}  // namespace installer
