// Where this machine keeps its macOS-shaped places, as `linux_host.json` among the resources says.
// Plain data, read once before anything else runs; only the host knows of it.
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

// How an administrator's consent is asked for.
struct AdministratorPrompt {
  // The program and its leading arguments; "/bin/sh -c SCRIPT" is appended.
  std::vector<std::string> command{"/usr/bin/pkexec"};
  Path askpass;  // told to the program as SUDO_ASKPASS; empty for none
  // A closed setting's own prompt is asked even when the process is root already; the usual ones aren't.
  bool asksRootToo = false;
};

struct LinuxHostSettings {
  static constexpr std::string_view fileName = "linux_host.json";

  Path root;                                      // holds Applications, Volumes, Library and tmp; absolute
  Path programs;                                  // the folder of hdiutil, codesign and the others; absolute
  std::optional<Path> extraCertificateAuthority;  // PEM file that is trusted besides the system's; absolute
  // "host" or "host:port" -> "address" or "address:port": where a connection really goes. The URL, the Host
  // header and the name that the certificate must bear stay as they are.
  std::map<std::string, std::string> hostAddresses;
  std::chrono::duration<double> requestTimeout{
      60.0};  // after so long a silence a download counts as broken off
  AdministratorPrompt administrator;

  Path applications() const { return joined(root, "Applications"); }
  Path volumes() const { return joined(root, "Volumes"); }
  Path temporaryDirectory() const { return joined(root, "tmp"); }
  // What `Workspace` and the program lsregister share.
  Path applicationRegistry() const {
    return joined(root, "Library/LaunchServices/registered-applications.json");
  }

  // What holds when there is no file: the root below the home of the user database, the programs in
  // "programs" beside the resources.
  static LinuxHostSettings defaults(const Path& resources);

  // Reads `text` of a file in `resources`; relative paths are relative to that folder. A wrong
  // type, an unknown key or a path that can't be one is `CocoaError::fileReadCorrupt`, and the description
  // names the key: half-read settings could send the engine to the wrong folder or the wrong network.
  [[nodiscard]] static Result<LinuxHostSettings> parse(std::string_view text, const Path& resources);

  // Reads the file in `resources`; `defaults` when none is there. An unreadable file is an error too.
  [[nodiscard]] static Result<LinuxHostSettings> read(const Path& resources);
};

}  // namespace installer
