// EndToEnd/hostile_cdn.py as a child process, for one test.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "Base/POSIX/FileDescriptor.h"
#include "Base/POSIX/LinuxHostSettings.h"
#include "Base/POSIX/Spawn.h"
#include "Contract/LinuxTestFolder.h"

namespace installer::test {

// Serves "cdn.kelo.example" and "mirror.kelo.example" over TLS from construction. The destructor ends the
// child.
class HostileServer {
 public:
  // `paths` are hostile_cdn.py's answers by path; `hosts` gives some names special certificates.
  explicit HostileServer(const nlohmann::json& paths, const nlohmann::json& hosts = nlohmann::json::object());
  ~HostileServer();
  HostileServer(const HostileServer&) = delete;
  HostileServer& operator=(const HostileServer&) = delete;

  // A machine's settings with both names at this server and its authority trusted.
  LinuxHostSettings settings() const;

  struct Request {
    std::string path;
    std::optional<std::int64_t> from;
    std::string ifRange;
    int status = 0;
    std::int64_t sent = 0;
  };
  // All requests so far. Stops the server.
  std::vector<Request> requests();

 private:
  LinuxTestFolder folder_;
  pid_t child_ = 0;
  FileDescriptor input_;
  int port_ = 0;
  std::string authority_;

  void stop();
};

// The body of hostile_cdn.py for {"bytes": count, "seed": seed}.
std::string hostilePattern(std::size_t count, int seed = 0);

}  // namespace installer::test
