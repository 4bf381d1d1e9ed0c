// A shell that runs as administrator and executes one command line after the other, so that a series of
// commands needs one prompt.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>

#include "Base/POSIX/FileDescriptor.h"
#include "Base/POSIX/LinuxHostSettings.h"

namespace installer {

// The first command starts the shell. The destructor ends it after its current command. One thread at a time;
// every call blocks until the command has ended.
class PrivilegedShell {
 public:
  explicit PrivilegedShell(AdministratorPrompt prompt) : prompt_{std::move(prompt)} {}
  ~PrivilegedShell();
  PrivilegedShell(const PrivilegedShell&) = delete;
  PrivilegedShell& operator=(const PrivilegedShell&) = delete;

  struct Failure {
    bool dismissed = false;  // the user dismissed the prompt; nothing ran
    int number = 0;          // the command's exit status, or why it couldn't be run; not 0
    std::string message;     // the output of the command or the prompt, limited by `KeptOutput`
  };
  // Absent after an exit status of 0. Prompts the user if no shell is running: at first, and again after the
  // shell has ended.
  std::optional<Failure> run(const std::string& commandLine);

 private:
  AdministratorPrompt prompt_;
  pid_t process_ = 0;  // 0 while no shell runs
  FileDescriptor requests_;
  FileDescriptor answers_;
  std::string token_;  // begins the shell's own lines; a secret from the commands
  std::string unread_;

  std::optional<Failure> start();
  std::optional<Failure> startPrompt();  // with the shell as its program
  Failure refusedStart(const std::string& printed);
  bool isAlive();
  bool send(const std::string& text);
  // The output before the shell's next own line, and that line's text; `line` is absent at the end.
  struct Answer {
    std::string printed;
    std::optional<std::string> line;
  };
  Answer receive();
  int end();  // waits for the shell's end and returns its exit status
};

}  // namespace installer
