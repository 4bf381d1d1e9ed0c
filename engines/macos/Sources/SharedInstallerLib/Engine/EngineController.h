// The facade of all commands of the protocol. A process makes one controller, calls one operation, and exits
// with the returned status.
//
// Each operation runs on the main thread to its end, emits its events and at last one `done`, and returns the
// exit status in that `done`. Any thread may call the cancels.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Models/AppInfo.h"
#include "Models/Vocabulary.h"

namespace installer {

class InstallRun;
class PackageProvider;
struct AppResultEvent;

class EngineController : public std::enable_shared_from_this<EngineController> {
  struct Private {};

 public:
  static std::shared_ptr<EngineController> make(std::shared_ptr<PackageProvider> provider);
  EngineController(Private, std::shared_ptr<PackageProvider> provider);
  ~EngineController();
  EngineController(const EngineController&) = delete;
  EngineController& operator=(const EngineController&) = delete;

  const std::shared_ptr<PackageProvider>& provider() const { return provider_; }

  // Reports the engine, its capabilities and the installed apps. Uses no network. Always 0.
  ExitCode hello();

  // Reports the CDN's versions of `apps` (empty means the whole catalog). After the sweep, blocks for up to
  // 15 seconds per app, one after the other, for the release notes. Always 0.
  ExitCode checkUpdates(const std::vector<AppIdentifier>& apps);

  // Reports the free space of the volume of `path`, or of its nearest existing parent; an empty path means
  // the applications folder. Always 0, also when the size is unknown.
  ExitCode diskFree(const std::string& path);

  // Writes a log bundle. 0, or 2 when it couldn't be written.
  ExitCode exportLogs(const std::optional<std::string>& outDirectory);

  // Installs `apps` (empty means the whole catalog) one by one; `action` is `install` or `update`. Runs the
  // main run loop until the end, or until 600 seconds have passed without progress.
  ExitCode runInstall(const std::vector<AppIdentifier>& apps, Action action, bool strict);

  // Removes `apps` (empty means the whole catalog) one by one, on this thread. Prompts for an administrator's
  // password if needed.
  ExitCode runUninstall(const std::vector<AppIdentifier>& apps, bool strict);

  // Both return at once and take effect on the main queue, if the controller still exists then. The current
  // app is completed. A cancel of one app stops the install of that app only, but all later apps of an
  // uninstall. An unknown name is ignored.
  void cancelAll();
  void cancelApp(const std::string& app);

 private:
  const std::shared_ptr<PackageProvider> provider_;
  // Both are used on the main thread only.
  std::shared_ptr<InstallRun> activeRun_;  // null except during an install run
  bool uninstallCancelled_ = false;

  AppResultEvent uninstallUnlessCancelled(const AppInfo& app, std::size_t index, std::size_t total);
};

}  // namespace installer
