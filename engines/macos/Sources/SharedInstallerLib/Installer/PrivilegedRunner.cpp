#include "Installer/PrivilegedRunner.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Base/ProcessWide.h"
#include "Platform/Machine.h"
#include "Utils/Log.h"

namespace installer {

namespace {

// The number may be an integer or a real.
bool isUserCancelled(const Json& scriptError) {
  if (!scriptError.is_object()) return false;
  const auto number = scriptError.find(AdministratorScript::kErrorNumberKey);
  if (number == scriptError.end() || !number->is_number()) return false;
  return std::trunc(number->get<double>()) == AdministratorScript::kUserCancelled;
}

}  // namespace

AdminOutcome adminOutcome(const ScriptErrorDictionary& scriptError) {
  if (!scriptError) return AdminOutcome::succeeded;
  if (isUserCancelled(*scriptError)) {
    log("DMGInstaller: admin authorization dismissed by the user");
    return AdminOutcome::cancelled;
  }
  logError("DMGInstaller: Admin command error: {}",
           scriptError->dump(-1, ' ', false, Json::error_handler_t::replace));
  return AdminOutcome::failed;
}

namespace {

bool isPlainShellCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view{"/._-+"}.find(c) != std::string_view::npos;
}

}  // namespace

std::string shellQuoted(std::string_view text) {
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'') {
      quoted += "'\\''";
      continue;
    }
    quoted += c;
  }
  return quoted += '\'';
}

std::string shellProgram(std::string_view path) {
  if (std::ranges::all_of(path, isPlainShellCharacter)) return std::string{path};
  return shellQuoted(path);
}

std::string removalCommand(const Path& path) {
  return fmt::format("{} -rf {}", shellProgram(machine().paths.rm), shellQuoted(path));
}

namespace {

constexpr const char* kHandlerName = "runCommand";
constexpr const char* kSharedSource =
    "on runCommand(cmd)\n"
    "    do shell script cmd with administrator privileges\n"
    "end runCommand";

constinit ProcessWide<PrivilegedRunner> runner{[] { return std::make_unique<PrivilegedRunner>(); }};

// For a string literal of the script language. Backslashes are escaped first, so that those of the quotes
// stay single.
std::string escapedForScript(const std::string& command) {
  std::string escaped;
  for (const char c : command) {
    if (c == '\\' || c == '"') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

// Each such script prompts again. A script that can't be made counts as a success although nothing ran: the
// callers check the effect afterwards.
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
  assert(machine().dispatch.isMainThread());
  const MutexLock lock{privilegedRunnerLock_};
  if (auto* const script = privilegedRunner()) {
    const auto error = script->callHandler(kHandlerName, command);
    if (error) return adminOutcome(*error);
  }
  log("DMGInstaller: shared privileged runner unavailable — falling back to a per-command script (the user may be prompted again)");
  return runWithAdminPrivilegesOneShot(command);
}

AdministratorScript* PrivilegedRunner::privilegedRunner() {
  if (!isMade_) script_ = machine().administratorScripts.make(kSharedSource);
  isMade_ = true;
  return script_.get();
}

AdminOutcome runAsAdministrator(const std::string& command) {
  auto outcome = AdminOutcome::failed;
  const auto work = [&outcome, &command] { outcome = PrivilegedRunner::shared().run(command); };
  Dispatch& dispatch = machine().dispatch;
  if (dispatch.isMainThread()) {
    work();
  } else {
    dispatch.syncMain(work);
  }
  return outcome;
}

}  // namespace installer
