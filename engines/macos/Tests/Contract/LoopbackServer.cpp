#include "Contract/LoopbackServer.h"

#include <algorithm>
#include <arpa/inet.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <optional>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

#include "Contract/LoopbackTransport.h"

namespace installer::test {

namespace {

// The value of a header of `request`; absent when there is none.
std::optional<std::string> header(const std::string& request, const std::string& name) {
  const auto start = request.find("\r\n" + name + ": ");
  if (start == std::string::npos) return std::nullopt;
  const auto value = start + name.size() + 4;
  return request.substr(value, request.find("\r\n", value) - value);
}

// The first byte that a resumed transfer requests.
std::size_t rangeStart(const std::string& request) {
  const auto range = header(request, "Range");
  return range && range->starts_with("bytes=") ? std::stoul(range->substr(6)) : 0;
}

int closedInChildren(int descriptor) {
  ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
  return descriptor;
}

sockaddr_in loopbackAddress(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

// Makes a last connection, because on some systems shutting down a listening socket wakes no thread.
void wakeListener(std::uint16_t port) {
  const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
  const sockaddr_in address = loopbackAddress(port);
  (void)::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  ::close(socket);
}

}  // namespace

LoopbackServer::LoopbackServer(const std::string& host, const Path& certificateFile)
    : transport_{std::make_unique<LoopbackTransport>(host, certificateFile)} {
  listener_ = closedInChildren(::socket(AF_INET, SOCK_STREAM, 0));
  sockaddr_in address = loopbackAddress(0);
  socklen_t length = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (::bind(listener_, generic, length) != 0 || ::listen(listener_, 16) != 0 ||
      ::getsockname(listener_, generic, &length) != 0) {
    throw std::runtime_error{"no port to listen on"};
  }
  port_ = ntohs(address.sin_port);
  threads_.emplace_back([this] { acceptConnections(); });
}

LoopbackServer::~LoopbackServer() {
  std::vector<std::thread> threads;
  {
    const MutexLock lock{mutex_};
    stopping_ = true;
    for (const int socket : sockets_) ::shutdown(socket, SHUT_RDWR);
  }
  wakeListener(port_);
  threads_.front().join();  // no new threads after this
  for (auto& thread : threads_) {
    if (thread.joinable()) thread.join();
  }
  ::close(listener_);
}

std::string LoopbackServer::urlOf(const std::string& path) const {
  return fmt::format("{}:{}{}", transport_->origin(), port_, path);
}

ServerResource& LoopbackServer::resource(const std::string& path) {
  const MutexLock lock{mutex_};
  return resources_[path];
}

std::vector<std::string> LoopbackServer::requests() const {
  const MutexLock lock{mutex_};
  return requests_;
}

void LoopbackServer::acceptConnections() {
  for (;;) {
    const int socket = closedInChildren(::accept(listener_, nullptr, nullptr));
    if (socket < 0) return;
    const MutexLock lock{mutex_};
    if (stopping_) {
      ::close(socket);
      return;
    }
    sockets_.push_back(socket);
    threads_.emplace_back([this, socket] { serve(socket); });
  }
}

// Serves one request per connection.
void LoopbackServer::serve(int socket) {
  const auto connection = transport_->accept(socket);
  std::string request;
  while (request.find("\r\n\r\n") == std::string::npos) {
    const auto arrived = connection->read();
    if (arrived.empty()) break;
    request += arrived;
  }
  Response response;
  if (request.find("\r\n\r\n") != std::string::npos) response = respond(request);
  if (!response.bytes.empty()) connection->write(response.bytes);
  if (response.silent) (void)connection->read();  // until the client has closed
  if (response.complete) connection->finish();
  const MutexLock lock{mutex_};
  sockets_.remove(socket);
  ::close(socket);
}

LoopbackServer::Response LoopbackServer::respond(const std::string& request) {
  const MutexLock lock{mutex_};
  const auto pathStart = request.find(' ') + 1;
  const auto path = request.substr(pathStart, request.find(' ', pathStart) - pathStart);
  auto start = rangeStart(request);
  requests_.push_back("GET " + path + (start > 0 ? fmt::format(" from {}", start) : ""));

  const auto found = resources_.find(path);
  if (found == resources_.end()) {
    return {.bytes = "HTTP/1.1 404 Not Found\r\nContent-Length: 9\r\n\r\nnot found", .complete = true};
  }
  auto& resource = found->second;
  const auto answer = resource.takeNext();
  if (answer.kind == ServerAnswer::Kind::silence) return {.silent = true};
  if (answer.kind == ServerAnswer::Kind::failure) return {};

  const auto validator = resource.validatorOf(answer.body);
  const auto condition = header(request, "If-Range");
  const auto tag = "\"" + validator.value_or("") + "\"";
  const bool partial = start > 0 && resource.acceptsRanges_ && validator && (!condition || *condition == tag);
  if (!partial) start = 0;

  auto head = fmt::format("HTTP/1.1 {} Answer\r\nConnection: close\r\n", partial ? 206 : answer.status);
  if (answer.kind == ServerAnswer::Kind::redirect) head += "Location: " + answer.location + "\r\n";
  if (validator) head += "ETag: " + tag + "\r\n";
  if (partial) {
    head +=
        fmt::format("Content-Range: bytes {}-{}/{}\r\n", start, answer.body.size() - 1, answer.body.size());
  }
  if (resource.saysLength_) head += fmt::format("Content-Length: {}\r\n", answer.body.size() - start);
  auto body = answer.body.substr(start);
  if (answer.dropsAfter) body.resize(std::min(body.size(), *answer.dropsAfter));
  return {.bytes = head + "\r\n" + body, .complete = !answer.dropsAfter.has_value()};
}

}  // namespace installer::test
