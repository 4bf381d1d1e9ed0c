// One shell that runs as administrator and takes one command line after the other, so that a burst of
// commands costs one prompt.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>

#include "Base/POSIX/FileDescriptor.h"
#include "Base/POSIX/LinuxHostSettings.h"

namespace installer {

// Starts nothing before the first command. Destroying it ends the shell once its command has ended. One
// thread at a time; every call blocks until the answer is there.
class PrivilegedShell {
 public:
  explicit PrivilegedShell(AdministratorPrompt prompt) : prompt_{std::move(prompt)} {}
  ~PrivilegedShell();
  PrivilegedShell(const PrivilegedShell&) = delete;
  PrivilegedShell& operator=(const PrivilegedShell&) = delete;

  struct Failure {
    bool dismissed = false;  // the person said no; nothing ran
    int number = 0;          // the command's exit status, or why it couldn't be run; not 0
    std::string message;     // what the command or the prompt printed, as `KeptOutput` keeps it
  };
  // Absent after an exit status of 0. Asks the person if no shell is running: at first, and again when the
  // shell has died since.
  std::optional<Failure> run(const std::string& commandLine);

 private:
  AdministratorPrompt prompt_;
  pid_t process_ = 0;  // 0 while there is none
  FileDescriptor requests_;
  FileDescriptor answers_;
  std::string token_;  // begins the shell's own lines; no command knows it
  std::string unread_;

  std::optional<Failure> start();
  Failure refusedStart(const std::string& printed);
  bool isAlive();
  bool send(const std::string& text);
  // What was printed before the shell's next own line, and what that line says; absent `line` at the end.
  struct Answer {
    std::string printed;
    std::optional<std::string> line;
  };
  Answer receive();
  int end();  // lets the shell go and gives its exit status
};

}  // namespace installer
