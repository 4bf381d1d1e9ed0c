#include "Contract/LoopbackServer.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <fmt/format.h>
#include <fstream>
#include <netinet/in.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <optional>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace installer::testing {

namespace {

// The value of a header of `request`; absent when it isn't there.
std::optional<std::string> header(const std::string& request, const std::string& name) {
  const auto start = request.find("\r\n" + name + ": ");
  if (start == std::string::npos) return std::nullopt;
  const auto value = start + name.size() + 4;
  return request.substr(value, request.find("\r\n", value) - value);
}

// The first byte that a resumed transfer asks for.
std::size_t rangeStart(const std::string& request) {
  const auto range = header(request, "Range");
  return range && range->starts_with("bytes=") ? std::stoul(range->substr(6)) : 0;
}

}  // namespace

struct LoopbackServer::TLS {
  explicit TLS(const std::string& host, const Path& certificateFile) {
    EVP_PKEY* const key = EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256");
    X509* const certificate = X509_new();
    X509_set_version(certificate, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 24L * 3600);
    X509_set_pubkey(certificate, key);
    const auto* const name = reinterpret_cast<const unsigned char*>(host.c_str());
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_ASC, name, -1, -1, 0);
    X509_set_issuer_name(certificate, X509_get_subject_name(certificate));
    addExtension(certificate, NID_basic_constraints, "critical,CA:TRUE");
    addExtension(certificate, NID_subject_alt_name, "DNS:" + host);
    X509_sign(certificate, key, EVP_sha256());

    SSL_CTX_use_certificate(context, certificate);
    SSL_CTX_use_PrivateKey(context, key);
    BIO* const file = BIO_new_file(certificateFile.c_str(), "w");
    PEM_write_bio_X509(file, certificate);
    BIO_free(file);
    X509_free(certificate);
    EVP_PKEY_free(key);
  }
  TLS(const TLS&) = delete;
  TLS& operator=(const TLS&) = delete;
  ~TLS() { SSL_CTX_free(context); }

  SSL_CTX* context = SSL_CTX_new(TLS_server_method());

 private:
  static void addExtension(X509* certificate, int kind, const std::string& value) {
    X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, nullptr, kind, value.c_str());
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
  }
};

LoopbackServer::LoopbackServer(const std::string& host, const Path& certificateFile)
    : host_{host}, tls_{std::make_unique<TLS>(host, certificateFile)} {
  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
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
    const std::lock_guard lock{mutex_};
    stopping_ = true;
    ::shutdown(listener_, SHUT_RDWR);
    for (const int socket : sockets_) ::shutdown(socket, SHUT_RDWR);
  }
  threads_.front().join();  // no new threads from here on
  for (auto& thread : threads_) {
    if (thread.joinable()) thread.join();
  }
  ::close(listener_);
}

std::string LoopbackServer::urlOf(const std::string& path) const {
  return fmt::format("https://{}:{}{}", host_, port_, path);
}

ServerResource& LoopbackServer::resource(const std::string& path) {
  const std::lock_guard lock{mutex_};
  return resources_[path];
}

std::vector<std::string> LoopbackServer::requests() const {
  const std::lock_guard lock{mutex_};
  return requests_;
}

void LoopbackServer::acceptConnections() {
  for (;;) {
    const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) return;
    const std::lock_guard lock{mutex_};
    if (stopping_) {
      ::close(socket);
      return;
    }
    sockets_.push_back(socket);
    threads_.emplace_back([this, socket] { serve(socket); });
  }
}

// One request on each connection. Ending without the closing words of TLS is what a lost connection looks
// like.
void LoopbackServer::serve(int socket) {
  SSL* const connection = SSL_new(tls_->context);
  SSL_set_fd(connection, socket);
  std::string request;
  std::array<char, 4096> buffer{};
  if (SSL_accept(connection) == 1) {
    while (request.find("\r\n\r\n") == std::string::npos) {
      const int count = SSL_read(connection, buffer.data(), buffer.size());
      if (count <= 0) break;
      request.append(buffer.data(), static_cast<std::size_t>(count));
    }
  }
  Response response;
  if (request.find("\r\n\r\n") != std::string::npos) response = respond(request);
  if (!response.bytes.empty()) {
    SSL_write(connection, response.bytes.data(), static_cast<int>(response.bytes.size()));
  }
  if (response.silent) SSL_read(connection, buffer.data(), buffer.size());  // until the other side has gone
  if (response.complete) SSL_shutdown(connection);
  SSL_free(connection);
  const std::lock_guard lock{mutex_};
  sockets_.remove(socket);
  ::close(socket);
}

LoopbackServer::Response LoopbackServer::respond(const std::string& request) {
  const std::lock_guard lock{mutex_};
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

}  // namespace installer::testing
