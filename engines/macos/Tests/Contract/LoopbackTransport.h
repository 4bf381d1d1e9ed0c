// What carries the bytes of the server on the loopback address. There are two, and the build takes one: TLS
// under the server's own name, and plain sockets, for a host that can be given neither a name nor an
// authority.
#pragma once

#include <memory>
#include <string>

#include "Base/Path.h"

namespace installer::test {

// One accepted socket, which the server closes afterwards. Used by one thread.
class LoopbackConnection {
 public:
  virtual ~LoopbackConnection() = default;
  virtual std::string read() = 0;  // what arrives next; empty when nothing comes any more
  virtual void write(const std::string& bytes) = 0;
  virtual void finish() = 0;  // says that the answer was complete; without it the connection is lost
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
