// How a command line that was to run as administrator ended.
#pragma once

#include "Platform/AdministratorScript.h"

namespace installer {

enum class AdminOutcome {
  succeeded,  // it ran and exited with status 0
  cancelled,  // the prompt was dismissed; nothing ran
  failed,     // the authorization failed, the command exited non-zero, or the script could not run
};

// Reads the dictionary that a script execution left, and logs what it says. No dictionary is a success.
AdminOutcome adminOutcome(const ScriptErrorDictionary& scriptError);

}  // namespace installer
