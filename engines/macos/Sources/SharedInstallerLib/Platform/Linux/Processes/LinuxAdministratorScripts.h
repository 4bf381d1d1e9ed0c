// The two script sources that the engine uses, understood to the letter and run by an administrator's shell.
#pragma once

#include "Base/POSIX/LinuxHostSettings.h"
#include "Platform/AdministratorScript.h"

namespace installer {

class LinuxAdministratorScripts : public AdministratorScripts {
 public:
  explicit LinuxAdministratorScripts(AdministratorPrompt prompt) : prompt_{std::move(prompt)} {}

  // Knows a handler `runCommand` that runs its argument, and one `do shell script "..."` statement, both
  // "with administrator privileges"; null for any other source.
  //
  // A script's first command asks the person; the granted shell lives as long as the script. The error
  // dictionary has -128 for a dismissed prompt, otherwise the command's exit status, and what was printed
  // under "NSAppleScriptErrorMessage".
  std::unique_ptr<AdministratorScript> make(const std::string& source) override;

 private:
  AdministratorPrompt prompt_;
};

}  // namespace installer
