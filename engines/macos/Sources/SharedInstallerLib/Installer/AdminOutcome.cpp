#include "Installer/AdminOutcome.h"

#include <cmath>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Utils/Log.h"

namespace installer {

namespace {

// The number may come as an integer or as a real.
bool isUserCancelled(const Json& scriptError) {
  if (!scriptError.is_object()) return false;
  const auto number = scriptError.find(AdministratorScript::errorNumberKey);
  if (number == scriptError.end() || !number->is_number()) return false;
  return std::trunc(number->get<double>()) == AdministratorScript::userCancelled;
}

}  // namespace

AdminOutcome adminOutcome(const ScriptErrorDictionary& scriptError) {
  if (!scriptError) return AdminOutcome::succeeded;
  if (isUserCancelled(*scriptError)) {
    log("DMGInstaller: admin authorization dismissed by the user");
    return AdminOutcome::cancelled;
  }
  logError(fmt::format("DMGInstaller: Admin command error: {}",
                       scriptError->dump(-1, ' ', false, Json::error_handler_t::replace)));
  return AdminOutcome::failed;
}

}  // namespace installer
