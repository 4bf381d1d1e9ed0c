#include "Platform/Linux/HTTP/CurlErrors.h"

#include <cerrno>
#include <fmt/format.h>
#include <ifaddrs.h>
#include <net/if.h>

#include "Platform/Linux/HTTP/CurlLibrary.h"

namespace installer {

namespace {

std::int64_t codeOfConnectFailure(long osErrno) {
  switch (osErrno) {
    case ENETUNREACH:
    case ENETDOWN: return URLErrorCode::notConnectedToInternet;
    case ETIMEDOUT: return URLErrorCode::timedOut;
    default: return URLErrorCode::cannotConnectToHost;
  }
}

// The connection was lost before TLS was set up: by a reset, or by its end, for which libcurl has only
// OpenSSL's name. Other errno values are from attempts at other addresses.
bool wasLostInHandshake(const CurlFailure& failure) {
  return failure.osErrno == ECONNRESET || failure.osErrno == ECONNABORTED || failure.osErrno == EPIPE ||
         failure.osErrno == ETIMEDOUT || failure.words.find("SSL_ERROR_SYSCALL") != std::string::npos;
}

// Of the failures whose code alone decides.
std::int64_t codeOf(CURLcode failure) {
  switch (failure) {
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_PROXY: return URLErrorCode::cannotConnectToHost;
    case CURLE_OPERATION_TIMEDOUT: return URLErrorCode::timedOut;
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE: return URLErrorCode::networkConnectionLost;
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_ISSUER_ERROR: return URLErrorCode::serverCertificateUntrusted;
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ENGINE_INITFAILED: return URLErrorCode::secureConnectionFailed;
    case CURLE_URL_MALFORMAT: return URLErrorCode::badURL;
    case CURLE_UNSUPPORTED_PROTOCOL: return URLErrorCode::unsupportedURL;
    case CURLE_TOO_MANY_REDIRECTS: return URLErrorCode::httpTooManyRedirects;
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_HTTP2:
    case CURLE_BAD_CONTENT_ENCODING: return URLErrorCode::badServerResponse;
    case CURLE_FILESIZE_EXCEEDED: return URLErrorCode::dataLengthExceedsMaximum;
    case CURLE_WRITE_ERROR: return URLErrorCode::cannotWriteToFile;
    default: return URLErrorCode::unknown;
  }
}

std::int64_t codeOf(const CurlFailure& failure, bool isConnected) {
  switch (failure.code) {
    case CURLE_COULDNT_RESOLVE_HOST:
      return isConnected ? URLErrorCode::cannotFindHost : URLErrorCode::notConnectedToInternet;
    case CURLE_COULDNT_CONNECT: return codeOfConnectFailure(failure.osErrno);
    case CURLE_SSL_CONNECT_ERROR:
      return wasLostInHandshake(failure) ? URLErrorCode::networkConnectionLost
                                         : URLErrorCode::secureConnectionFailed;
    default: return codeOf(failure.code);
  }
}

}  // namespace

Error urlError(const CurlFailure& failure, bool isConnected) {
  return urlError(codeOf(failure, isConnected),
                  failure.words.empty() ? curl().easy_strerror(failure.code) : failure.words);
}

Error urlError(std::int64_t code, std::string_view words) {
  return {std::string{ErrorDomain::url}, code, fmt::format("{} ({} {})", words, ErrorDomain::url, code),
          nullptr};
}

bool hasNetworkInterface() {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return true;  // in doubt the name is at fault
  bool found = false;
  for (const auto* entry = list; entry != nullptr && !found; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || (entry->ifa_flags & IFF_LOOPBACK) != 0) continue;
    const auto family = entry->ifa_addr->sa_family;
    found = (entry->ifa_flags & IFF_UP) != 0 && (entry->ifa_flags & IFF_RUNNING) != 0 &&
            (family == AF_INET || family == AF_INET6);
  }
  freeifaddrs(list);
  return found;
}

}  // namespace installer
