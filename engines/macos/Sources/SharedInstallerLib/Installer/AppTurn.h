// The turn: only one engine at a time works on the installed apps. An engine takes the turn before it
// acquires, installs or removes an app, and releases it at that app's end.
//
// The turn is a kernel lock on the applications folder: it needs no file, works across users, and ends with
// the process. It is for all apps, because a lock per app would need a file per app that outlives its
// process. If the folder can't be locked, every engine gets the turn.
//
// A waiting engine holds a second lock, its place, on the folder that contains the applications folder. To
// take the turn, every engine needs the place first, so that a run of several apps can't take the turn again
// before the engine that waits. A deadlock isn't possible: an engine that has the turn doesn't wait for the
// place.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Base/Error.h"
#include "Models/AppInfo.h"
#include "Platform/Dispatch.h"
#include "Platform/FileSystem.h"

namespace installer {

// Released with the last reference. Null when the folder can't be locked.
using AppTurn = std::shared_ptr<FileLock>;

namespace AppTurns {

// Longer than an engine's idle limit.
inline constexpr std::chrono::seconds kWaitLimit{1800};
inline constexpr Duration kLookInterval{0.05};

// Absent while another engine has the turn or waits for it. With the turn, removes the app's bundle from the
// cache and clears the leftovers of killed engines.
std::optional<AppTurn> tryTake(const AppInfo& app);

// Whether another engine waits for the turn.
bool isAwaited();

enum class Denied { givenUp, timedOut };

// `goesOn` pauses for about `kLookInterval` and returns whether to wait further. `report` is called when the
// wait begins, with the sentence that is also logged, and then once a minute without one, because a wait for
// another engine counts as progress.
struct Wait {
  std::function<bool()> goesOn;
  std::function<void(const std::optional<std::string>& message)> report = {};
};

// Waits until the other engine has released the turn. Logs the reason once.
Expected<AppTurn, Denied> take(const AppInfo& app, const Wait& wait);

// The sentence for `Denied::timedOut`.
std::string timeoutMessage(const AppInfo& app);

}  // namespace AppTurns

}  // namespace installer
