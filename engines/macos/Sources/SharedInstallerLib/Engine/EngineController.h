// The single facade behind every command of the protocol. One process makes one, calls one operation on it,
// and exits with the returned status.
//
// Each operation runs on the main thread to its end, emits its events on the way and one `done` as the last,
// and returns the exit status that the `done` carries. The cancels may come from any thread.
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
struct AppInfo;
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

  // What this engine is, can do, and finds on the machine. Touches no network. Always 0.
  ExitCode hello();

  // What the CDN offers for `apps` (empty means all of the catalog). Blocks for up to 15 seconds per app
  // behind the sweep, one after the other, for the release notes. Always 0.
  ExitCode checkUpdates(const std::vector<AppIdentifier>& apps);

  // Room on the volume of `path`, or of its nearest parent that exists; an empty path means the folder of
  // the applications. Always 0, also when the size is unknown.
  ExitCode diskFree(const std::string& path);

  // 0, or 2 when the bundle couldn't be written.
  ExitCode exportLogs(const std::optional<std::string>& outDirectory);

  // Installs `apps` (empty means all of the catalog) one by one; `action` is `install` or `update`. Turns
  // the main run loop until the end, or until 600 seconds have passed without any sign of life.
  ExitCode runInstall(const std::vector<AppIdentifier>& apps, Action action, bool strict);

  // Removes `apps` (empty means all of the catalog) one by one, on this thread; asks for an administrator's
  // password where it must.
  ExitCode runUninstall(const std::vector<AppIdentifier>& apps, bool strict);

  // Both return at once and take effect on the main queue, if the controller still lives then. The app at
  // work ends whole. A cancel of one app stops an install of that app alone, but all that is still to come of
  // an uninstall. A name that is no app's is ignored.
  void cancelAll();
  void cancelApp(const std::string& app);

 private:
  const std::shared_ptr<PackageProvider> provider_;
  // Both on the main thread only.
  std::shared_ptr<InstallRun> activeRun_;  // null but during an install run
  bool uninstallCancelled_ = false;

  AppResultEvent uninstallUnlessCancelled(const AppInfo& app, std::size_t index, std::size_t total);
};

}  // namespace installer
