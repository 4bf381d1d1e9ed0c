// Which application is registered under which bundle identifier. Any thread.
#pragma once

#include <optional>
#include <string>

#include "Base/Path.h"

namespace installer {

class Workspace {
 public:
  virtual ~Workspace() = default;

  // The registered bundle of that identifier; one of several as the platform chooses. The answer can be
  // stale: the bundle may be gone or changed since it was registered.
  virtual std::optional<Path> applicationPath(const std::string& bundleIdentifier) = 0;

  // Registers the bundle at `path`, replacing what was known of that path. Best effort.
  virtual void registerBundle(const Path& path) = 0;
};

}  // namespace installer
