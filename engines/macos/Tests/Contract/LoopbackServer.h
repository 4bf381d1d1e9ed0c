// A real HTTP server on the loopback address with the scripts of the simulated network: answers, lost
// connections, redirects, silence, lengths, validators and ranges. It doesn't support latency and pieces.
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Base/Mutex.h"
#include "Base/Path.h"
#include "Support/ServerResource.h"

namespace installer::test {

class LoopbackTransport;

class LoopbackServer {
 public:
  // Starts listening as `host`, with TLS if the host under test can trust the certificate. The certificate is
  // self-signed and is written to `certificateFile` in PEM.
  LoopbackServer(const std::string& host, const Path& certificateFile);
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;
  ~LoopbackServer();  // ends every connection

  std::string urlOf(const std::string& path) const;
  // A script must be set before its requests.
  ServerResource& resource(const std::string& path);
  std::vector<std::string> requests() const;  // "GET /path", with " from 700" after a resumed one

 private:
  struct Response {
    std::string bytes{};    // with the headers; empty for a connection that is lost before the answer
    bool silent = false;    // keeps the connection open and sends nothing
    bool complete = false;  // the connection isn't lost during the answer
  };

  std::unique_ptr<LoopbackTransport> transport_;
  int listener_ = -1;
  std::uint16_t port_ = 0;
  mutable Mutex mutex_;
  std::map<std::string, ServerResource> resources_ GUARDED_BY(mutex_);
  std::vector<std::string> requests_ GUARDED_BY(mutex_);
  std::list<int> sockets_ GUARDED_BY(mutex_);
  std::vector<std::thread> threads_ GUARDED_BY(mutex_);
  bool stopping_ GUARDED_BY(mutex_) = false;

  void acceptConnections();
  void serve(int socket);
  Response respond(const std::string& request);
};

}  // namespace installer::test
