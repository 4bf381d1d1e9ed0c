// The settings of the Linux host, from `linux_host.json` in the resources: the folders of its macOS-like
// machine, its network and its prompt. Plain data, read once before anything else runs.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Error.h"
#include "Base/Path.h"

namespace installer {

// The prompt for an administrator's consent.
struct AdministratorPrompt {
  // The program and its leading arguments; "/bin/sh -c SCRIPT" is appended.
  std::vector<std::string> command{"/usr/bin/pkexec"};
  Path askpass;  // passed to the program as SUDO_ASKPASS; empty for none
  // True for a `command` of the settings: it is used also when the process is root. The other prompts aren't.
  bool asksRootToo = false;
};

struct LinuxHostSettings {
  static constexpr std::string_view kFileName = "linux_host.json";

  Path root;                                      // contains Applications, Volumes, Library and tmp; absolute
  Path programs;                                  // the folder of hdiutil, codesign and the others; absolute
  std::optional<Path> extraCertificateAuthority;  // PEM file, trusted in addition to the system's; absolute
  // "host" or "host:port" -> "address" or "address:port": the address of the connection. The URL, the Host
  // header and the expected name of the certificate don't change.
  std::map<std::string, std::string> hostAddresses;
  std::chrono::duration<double> requestTimeout{
      60.0};  // without data, after which a download counts as interrupted
  AdministratorPrompt administrator;

  Path applications() const { return joined(root, "Applications"); }
  Path volumes() const { return joined(root, "Volumes"); }
  Path temporaryDirectory() const { return joined(root, "tmp"); }
  // The registry file of `Workspace` and of the program lsregister.
  Path applicationRegistry() const {
    return joined(root, "Library/LaunchServices/registered-applications.json");
  }

  // The settings without a file: the root is below the home folder of the user database, the programs are in
  // "programs" in the resources.
  static LinuxHostSettings defaults(const Path& resources);

  // Reads `text`, the content of a file in `resources`; relative paths are relative to that folder. A wrong
  // type, an unknown key or an invalid path is `CocoaError::fileReadCorrupt`, and the description names the
  // key: partly read settings could select the wrong folder or the wrong network.
  [[nodiscard]] static Result<LinuxHostSettings> parse(std::string_view text, const Path& resources);

  // Reads the file in `resources`; `defaults` when there is none. An unreadable file is an error.
  [[nodiscard]] static Result<LinuxHostSettings> read(const Path& resources);
};

// The path of this process's executable, without links; empty with errno set when it can't be read.
Path executablePath();

}  // namespace installer
