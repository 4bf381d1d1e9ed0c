// One engine at a time works on the installed apps. An engine takes the turn before it acquires, installs or
// removes an app, and gives it back at that app's end.
//
// The turn is a lock of the kernel on the folder of the applications: it needs no file, works across users,
// and ends with the process. It covers all apps and not one, because a lock for each app would need a file
// for each that outlives its process. An engine holds no other lock while it waits for the turn, so that two
// never wait for each other. A folder that can't be locked gives the turn to everyone.
#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Models/AppInfo.h"
#include "Platform/Dispatch.h"
#include "Platform/FileSystem.h"

namespace installer {

// Given back when the last reference goes away. Null where the folder can't be locked.
using AppTurn = std::shared_ptr<FileLock>;

namespace AppTurns {

// Longer than an engine can be silent before it ends by its own rule.
inline constexpr std::chrono::seconds kWaitLimit{1800};
inline constexpr Duration kLookInterval{0.05};

// Absent while another engine has the turn. What this process knew of the app's bundle is forgotten.
std::optional<AppTurn> tryTake(const AppInfo& app);

enum class Denied { givenUp, timedOut };

// `goesOn` pauses, for `kLookInterval` or so, and tells whether the wait goes on. `report` hears of the wait
// at its begin, with the sentence that is also logged, and then once a minute without one: that another
// engine lives and works is a sign of life.
struct Wait {
  std::function<bool()> goesOn;
  std::function<void(const std::optional<std::string>& message)> report = {};
};

// Waits until the other engine has given the turn back. Logs why, once.
std::expected<AppTurn, Denied> take(const AppInfo& app, const Wait& wait);

// The sentence for `Denied::timedOut`.
std::string timeoutMessage(const AppInfo& app);

}  // namespace AppTurns

}  // namespace installer
