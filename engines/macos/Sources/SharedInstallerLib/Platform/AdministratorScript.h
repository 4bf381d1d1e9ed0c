// Scripts that run one shell command line as administrator. The platform decides when to prompt for the
// password; a granted authorization lasts as long as the script object.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Base/Error.h"
#include "Base/JSONReader.h"

namespace installer {

// Absent after a success. Otherwise an object; the number under "NSAppleScriptErrorNumber" is -128 when the
// user dismissed the prompt. Other keys are for the log.
using ScriptErrorDictionary = std::optional<Json>;

// One compiled script object. One thread at a time; on macOS the main thread only.
class AdministratorScript {
 public:
  static constexpr const char* kErrorNumberKey = "NSAppleScriptErrorNumber";
  static constexpr int kUserCancelled = -128;

  virtual ~AdministratorScript() = default;

  enum class EventFailure { noTarget };  // the event couldn't be addressed to this process; nothing ran
  // Calls the script's handler `name` with one text argument, unchanged and without escaping.
  // Blocks until the command has ended or the prompt was dismissed.
  virtual Expected<ScriptErrorDictionary, EventFailure> callHandler(const std::string& name,
                                                                    const std::string& argument) = 0;

  // Runs the script's own statement. Blocks like `callHandler`.
  virtual ScriptErrorDictionary execute() = 0;
};

class AdministratorScripts {
 public:
  virtual ~AdministratorScripts() = default;
  // Null when the platform can't compile `source`. Nothing runs and no prompt appears yet.
  virtual std::unique_ptr<AdministratorScript> make(const std::string& source) = 0;
};

}  // namespace installer
