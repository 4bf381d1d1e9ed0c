// The registered applications by bundle identifier. Any thread.
#pragma once

#include <optional>
#include <string>

#include "Base/Path.h"

namespace installer {

class Workspace {
 public:
  virtual ~Workspace() = default;

  // The registered bundle of that identifier; the platform chooses one of several. The result can be stale:
  // the bundle may have been removed or changed since it was registered.
  virtual std::optional<Path> applicationPath(const std::string& bundleIdentifier) = 0;

  // Registers the bundle at `path` and replaces the path's earlier registration. Failures are ignored.
  virtual void registerBundle(const Path& path) = 0;
};

}  // namespace installer
