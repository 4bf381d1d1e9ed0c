#include <array>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include "Contract/LoopbackTransport.h"

namespace installer::test {

namespace {

// An end without the closing alert of TLS counts as a lost connection.
class TLSConnection : public LoopbackConnection {
 public:
  TLSConnection(SSL_CTX* context, int socket) : connection_{SSL_new(context)} {
    SSL_set_fd(connection_, socket);
    accepted_ = SSL_accept(connection_) == 1;
  }
  TLSConnection(const TLSConnection&) = delete;
  TLSConnection& operator=(const TLSConnection&) = delete;
  ~TLSConnection() override { SSL_free(connection_); }

  std::string read() override {
    std::array<char, 4096> buffer{};
    const int count = accepted_ ? SSL_read(connection_, buffer.data(), buffer.size()) : 0;
    return {buffer.data(), static_cast<std::size_t>(count > 0 ? count : 0)};
  }
  void write(const std::string& bytes) override {
    SSL_write(connection_, bytes.data(), static_cast<int>(bytes.size()));
  }
  void finish() override { SSL_shutdown(connection_); }

 private:
  SSL* connection_;
  bool accepted_ = false;
};

}  // namespace

struct LoopbackTransport::State {
  State(const std::string& host, const Path& certificateFile) : origin{"https://" + host} {
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
  State(const State&) = delete;
  State& operator=(const State&) = delete;
  ~State() { SSL_CTX_free(context); }

  std::string origin;
  SSL_CTX* context = SSL_CTX_new(TLS_server_method());

 private:
  static void addExtension(X509* certificate, int kind, const std::string& value) {
    X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, nullptr, kind, value.c_str());
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
  }
};

LoopbackTransport::LoopbackTransport(const std::string& host, const Path& certificateFile)
    : state_{std::make_unique<State>(host, certificateFile)} {
}

LoopbackTransport::~LoopbackTransport() = default;

std::string LoopbackTransport::origin() const {
  return state_->origin;
}

std::unique_ptr<LoopbackConnection> LoopbackTransport::accept(int socket) {
  return std::make_unique<TLSConnection>(state_->context, socket);
}

}  // namespace installer::test
