// Events of install and of uninstall runs. Stateless; any thread.
#pragma once

#include <string>
#include <vector>

#include "Engine/EngineEvent.h"
#include "Utils/UpdateChecker.h"

namespace installer {

struct AppInfo;

namespace RunEvents {

AppResultEvent appResult(const AppInfo& app, AppStatus status);
AppResultEvent failure(const AppInfo& app, ErrorCode errorCode);  // with the status `failed`
// Emits `event` and returns it.
AppResultEvent emitted(AppResultEvent event);
void emitLog(EventLevel level, const std::string& message);
// Emits the end of the run and returns `exitCode`.
ExitCode done(Action action, ExitCode exitCode, std::vector<AppResultEvent> results);
// Ends a run without any app.
ExitCode stopWithoutApps(Action action);
std::vector<std::string> statuses(const std::vector<AppResultEvent>& events);

}  // namespace RunEvents

}  // namespace installer

// The rows of `hello` and of `check-updates`, one per app. Any thread; may read the disk.
namespace installer::UpdateEntries {

// A row of the catalog. In offline mode the available version is that of the package beside the installer.
CatalogAppEvent catalogEntry(const AppUpdateStatus& status, PackageSourceMode mode);

// A row of the update report. Fetches the release notes, also for an app without an update, and blocks for up
// to 15 seconds.
EngineEvent::UpdateCheckEntry updateCheckEntry(const AppUpdateStatus& status);

}  // namespace installer::UpdateEntries
