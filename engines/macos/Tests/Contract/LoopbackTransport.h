// The transport of the server on the loopback address. The build selects one of two: TLS with the server's
// name, and plain sockets, for a host that can't be configured with a name and an authority.
#pragma once

#include <memory>
#include <string>

#include "Base/Path.h"

namespace installer::test {

// An accepted socket, which the server closes. Used by one thread.
class LoopbackConnection {
 public:
  virtual ~LoopbackConnection() = default;
  virtual std::string read() = 0;  // the next bytes; empty at the end
  virtual void write(const std::string& bytes) = 0;
  virtual void finish() = 0;  // ends a complete answer; without this call the connection counts as lost
};

class LoopbackTransport {
 public:
  LoopbackTransport(const std::string& host, const Path& certificateFile);
  LoopbackTransport(const LoopbackTransport&) = delete;
  LoopbackTransport& operator=(const LoopbackTransport&) = delete;
  ~LoopbackTransport();

  std::string origin() const;  // of the server's addresses, without the port
  std::unique_ptr<LoopbackConnection> accept(int socket);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace installer::test
