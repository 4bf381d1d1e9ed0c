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

// Serves "cdn.kelo.example" and "mirror.kelo.example" over TLS from its construction on. Ends the child at
// destruction.
class HostileServer {
 public:
  // What hostile_cdn.py calls answers, by path; `hosts` gives some names odd certificates.
  explicit HostileServer(const nlohmann::json& paths, const nlohmann::json& hosts = nlohmann::json::object());
  ~HostileServer();
  HostileServer(const HostileServer&) = delete;
  HostileServer& operator=(const HostileServer&) = delete;

  // A machine's settings under which both names are reached here, and the authority is believed.
  LinuxHostSettings settings() const;

  struct Request {
    std::string path;
    std::optional<std::int64_t> from;
    std::string ifRange;
    int status = 0;
    std::int64_t sent = 0;
  };
  // All there were. Stops the server.
  std::vector<Request> requests();

 private:
  LinuxTestFolder folder_;
  pid_t child_ = 0;
  FileDescriptor input_;
  int port_ = 0;
  std::string authority_;

  void stop();
};

// The body that hostile_cdn.py gives for {"bytes": count, "seed": seed}.
std::string hostilePattern(std::size_t count, int seed = 0);

}  // namespace installer::test
