#include "Installer/PrivilegedRunner.h"

#include <nlohmann/json.hpp>

#include "Base/ProcessWide.h"
#include "Platform/Machine.h"
#include "Utils/Log.h"

namespace installer {

namespace {

constexpr const char* handlerName = "runCommand";
constexpr const char* sharedSource =
    "on runCommand(cmd)\n"
    "    do shell script cmd with administrator privileges\n"
    "end runCommand";

constinit ProcessWide<PrivilegedRunner> runner{[] { return std::make_unique<PrivilegedRunner>(); }};

// For a string literal of the script language; backslashes first, so that those of the quotes stay single.
std::string escapedForScript(const std::string& command) {
  std::string escaped;
  for (const char c : command) {
    if (c == '\\' || c == '"') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

// Each such script asks anew. One that can't be made counts as a success although nothing ran: the callers
// look at the effect afterwards.
AdminOutcome runWithAdminPrivilegesOneShot(const std::string& command) {
  const auto script = machine().administratorScripts.make("do shell script \"" + escapedForScript(command) +
                                                          "\" with administrator privileges");
  if (script == nullptr) return adminOutcome(std::nullopt);
  return adminOutcome(script->execute());
}

}  // namespace

PrivilegedRunner& PrivilegedRunner::shared() {
  return runner.get();
}

AdminOutcome PrivilegedRunner::run(const std::string& command) {
  const std::lock_guard lock{privilegedRunnerLock_};
  if (auto* const script = privilegedRunner()) {
    const auto error = script->callHandler(handlerName, command);
    if (error) return adminOutcome(*error);
  }
  log("DMGInstaller: shared privileged runner unavailable — falling back to a per-command script (the user may be prompted again)");
  return runWithAdminPrivilegesOneShot(command);
}

AdministratorScript* PrivilegedRunner::privilegedRunner() {
  if (!isMade_) script_ = machine().administratorScripts.make(sharedSource);
  isMade_ = true;
  return script_.get();
}

}  // namespace installer
