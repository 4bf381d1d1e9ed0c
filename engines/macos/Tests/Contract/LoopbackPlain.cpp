#include <array>
#include <sys/socket.h>
#include <unistd.h>

#include "Contract/LoopbackTransport.h"

namespace installer::test {

namespace {

// An end before the announced length counts as a lost connection.
class PlainConnection : public LoopbackConnection {
 public:
  explicit PlainConnection(int socket) : socket_{socket} {}

  std::string read() override {
    std::array<char, 4096> buffer{};
    const auto count = ::read(socket_, buffer.data(), buffer.size());
    return {buffer.data(), static_cast<std::size_t>(count > 0 ? count : 0)};
  }
  void write(const std::string& bytes) override {
    std::size_t written = 0;
    while (written < bytes.size()) {
      const auto count = ::write(socket_, bytes.data() + written, bytes.size() - written);
      if (count <= 0) return;
      written += static_cast<std::size_t>(count);
    }
  }
  void finish() override { ::shutdown(socket_, SHUT_WR); }

 private:
  int socket_;
};

}  // namespace

struct LoopbackTransport::State {};

LoopbackTransport::LoopbackTransport(const std::string&, const Path&) {
}
LoopbackTransport::~LoopbackTransport() = default;

std::string LoopbackTransport::origin() const {
  return "http://127.0.0.1";
}

std::unique_ptr<LoopbackConnection> LoopbackTransport::accept(int socket) {
  return std::make_unique<PlainConnection>(socket);
}

}  // namespace installer::test
