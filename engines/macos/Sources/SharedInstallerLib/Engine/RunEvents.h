// What install and uninstall runs have in common in what they tell.
// Stateless; any thread.
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
// Hands `event` on when it has gone out as an event of its own.
AppResultEvent emitted(AppResultEvent event);
void emitLog(EventLevel level, const std::string& message);
// Emits the end of the run and gives its exit code.
ExitCode done(Action action, ExitCode exitCode, std::vector<AppResultEvent> results);
// The end of a run that has no app to work on.
ExitCode stopWithoutApps(Action action);
std::vector<std::string> statuses(const std::vector<AppResultEvent>& events);

}  // namespace RunEvents

}  // namespace installer

// The state of one app, for a shell: the rows of `hello` and of `check-updates`.
// Any thread; may read the disk.
namespace installer::UpdateEntries {

enum class PackageSourceMode { online, offline };

// A row of the catalog. In offline mode the packages beside the installer say what is on offer.
CatalogAppEvent catalogEntry(const AppUpdateStatus& status, PackageSourceMode mode);

// A row of the update report. Fetches the release notes, also for an app without an update, and blocks for
// up to 15 seconds meanwhile.
EngineEvent::UpdateCheckEntry updateCheckEntry(const AppUpdateStatus& status);

}  // namespace installer::UpdateEntries
