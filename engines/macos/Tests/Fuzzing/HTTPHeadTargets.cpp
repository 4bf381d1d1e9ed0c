// A server's answers, compared with the verdict of libcurl without the engine's rules.
#include <algorithm>
#include <cstddef>
#include <curl/curl.h>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "Base/POSIX/FileDescriptor.h"
#include "Base/Text.h"
#include "Platform/Linux/HTTP/CurlConnections.h"
#include "Platform/Linux/HTTP/CurlTransfer.h"
#include "Platform/Linux/HTTP/Validator.h"
#include "Targets.h"

namespace installer::test {

namespace {

constexpr const char* kAddress = "http://kelo.example/folder/file?query";

// A server that sends the same bytes on each connection, for any request, and closes its side.
class Server {
 public:
  Server() : name_{fmt::format("kelo-fuzzing-{}", ::getpid())} {
    // The leading NUL makes the address abstract: it isn't in the file system.
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    name_.copy(&address.sun_path[1], sizeof address.sun_path - 1);
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name_.size());
    const bool isBound = ::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), length) == 0;
    require(isBound && ::listen(listener_.get(), 1) == 0, "a server can be made");
  }

  // Executes a request on `handle` with `bytes` as the answer.
  CURLcode answer(CURL* handle, std::string_view bytes) {
    bytes_ = bytes;
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http");
    curl_easy_setopt(handle, CURLOPT_URL, kAddress);
    curl_easy_setopt(handle, CURLOPT_PROXY, "");
    curl_easy_setopt(handle, CURLOPT_ABSTRACT_UNIX_SOCKET, name_.c_str());
    curl_easy_setopt(handle, CURLOPT_PREREQFUNCTION, &Server::serve);
    curl_easy_setopt(handle, CURLOPT_PREREQDATA, this);
    const auto code = curl_easy_perform(handle);
    require(static_cast<bool>(connection_), "the server was asked");
    connection_.reset();
    return code;
  }

 private:
  std::string name_;
  FileDescriptor listener_{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  FileDescriptor connection_;
  std::string_view bytes_;

  // Called when the connection is made and before the request is sent.
  static int serve(void* data, char* /*remote*/, char* /*local*/, int /*remotePort*/, int /*localPort*/) {
    auto& server = *static_cast<Server*>(data);
    server.connection_ = FileDescriptor{::accept4(server.listener_.get(), nullptr, nullptr, SOCK_CLOEXEC)};
    const auto sent = ::send(server.connection_.get(), server.bytes_.data(), server.bytes_.size(), 0);
    require(sent == std::ssize(server.bytes_), "the answer fits into the socket");
    ::shutdown(server.connection_.get(), SHUT_WR);
    return CURL_PREREQFUNC_OK;
  }
};

Server& server() {
  static Server instance;
  return instance;
}

// libcurl's verdict about an answer.
struct Verdict {
  CURLcode code = CURLE_OK;
  int status = 0;
  curl_off_t length = -1;
  std::string body;
  std::string redirect;           // the target; empty without one
  bool hasSeveralPlaces = false;  // then libcurl takes the first one, and the host the last one
  std::set<std::string> lengths;  // the different lengths in the head
};

std::size_t append(char* bytes, std::size_t size, std::size_t count, void* body) {
  static_cast<std::string*>(body)->append(bytes, size * count);
  return size * count;
}

Verdict verdictOfCurl(std::string_view answer) {
  const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> handle{curl_easy_init(), &curl_easy_cleanup};
  Verdict verdict;
  curl_easy_setopt(handle.get(), CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  curl_easy_setopt(handle.get(), CURLOPT_WRITEFUNCTION, &append);
  curl_easy_setopt(handle.get(), CURLOPT_WRITEDATA, &verdict.body);
  verdict.code = server().answer(handle.get(), answer);
  long status = 0;
  curl_easy_getinfo(handle.get(), CURLINFO_RESPONSE_CODE, &status);
  verdict.status = static_cast<int>(status);
  curl_easy_getinfo(handle.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &verdict.length);
  const char* redirect = nullptr;
  curl_easy_getinfo(handle.get(), CURLINFO_REDIRECT_URL, &redirect);
  verdict.redirect = redirect == nullptr ? "" : redirect;
  curl_header* field = nullptr;
  const auto words = lowercased(answer);
  verdict.hasSeveralPlaces = words.find("location") != words.rfind("location");
  for (std::size_t i = 0;
       curl_easy_header(handle.get(), "Content-Length", i, CURLH_HEADER, -1, &field) == CURLHE_OK; ++i) {
    verdict.lengths.insert(field->value);
  }
  return verdict;
}

class Receiver : public CurlTransfer::Client {
 public:
  std::optional<ResponseHead> head;
  std::string body;

  CurlTransfer::Verdict didReceiveHead(const ResponseHead& received) override {
    require(!head, "there is one head");
    head = received;
    return CurlTransfer::Verdict::goOn;
  }
  CurlTransfer::Verdict didReceiveBody(std::string_view bytes) override {
    require(head.has_value(), "the head comes before the body");
    body += bytes;
    return CurlTransfer::Verdict::goOn;
  }
  void didEnd(const CurlFailure& /*failure*/) override {}
};

CurlFailure receive(std::string_view answer, const std::shared_ptr<Receiver>& receiver) {
  HTTPRequest request;
  request.url = *URL::parse(kAddress);
  const CurlConnections connections{LinuxHostSettings{}};
  CurlTransfer transfer{connections, request, receiver};
  return transfer.failure(server().answer(transfer.handle(), answer));
}

// True for a refusal by the engine's rules.
bool isOwnRefusal(const CurlFailure& failure) {
  return failure.words.starts_with("the response has ");
}

std::string text(const ContentRange& range) {
  return fmt::format("bytes {}-{}/{}", range.first, range.last,
                     range.total ? std::to_string(*range.total) : "*");
}

void requireRangeLaws(const ResponseHead& head) {
  const auto range = head.contentRange();
  if (!range) return;
  require(range->first >= 0 && range->first <= range->last, "a range begins before its end");
  require(!range->total || range->last < *range->total, "a range ends within the whole");
  ResponseHead again;
  again.addField("Content-Range", text(*range));
  require(again.contentRange() == range, "a range that is written again reads the same");
}

void requireValidatorLaws(const ResponseHead& head) {
  const auto validator = Validator::of(head);
  if (!validator) return;
  require(Validator::parse(validator->text()) == validator, "a validator reads as itself");
  require(validator->agreesWith(head), "a response agrees with its own validator");
  require(std::ranges::none_of(validator->text(), [](unsigned char c) { return c < ' ' || c == 0x7F; }),
          "a validator is one line of a request");
}

// The scheme, the host and the port, as libcurl reads them when it follows a redirect.
std::string origin(const std::string& address) {
  const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> url{curl_url(), &curl_url_cleanup};
  curl_url_set(url.get(), CURLUPART_URL, kAddress, 0);  // libcurl can leave out the scheme
  curl_url_set(url.get(), CURLUPART_URL, address.c_str(), CURLU_NON_SUPPORT_SCHEME | CURLU_URLENCODE);
  std::string parts;
  for (const auto part : {CURLUPART_SCHEME, CURLUPART_HOST, CURLUPART_PORT}) {
    char* text = nullptr;
    if (curl_url_get(url.get(), part, &text, CURLU_DEFAULT_PORT) == CURLUE_OK) parts += lowercased(text);
    curl_free(text);
    parts += ' ';
  }
  return parts;
}

void requireRedirectLaws(const ResponseHead& head, const Verdict& verdict) {
  const auto target = head.redirectTarget();
  if (!target || verdict.hasSeveralPlaces) return;
  require(target->absoluteString().empty() || target->scheme().has_value(),
          "a redirect leads to an absolute address");
  // What follows the host is encoded in other ways: libcurl gives an absolute address as it came.
  require(target->absoluteString().empty() || origin(target->absoluteString()) == origin(verdict.redirect),
          "a redirect leads to libcurl's host");
}

}  // namespace

void fuzzHTTPHead(std::string_view text) {
  const auto verdict = verdictOfCurl(text);
  const auto receiver = std::make_shared<Receiver>();
  const auto failure = receive(text, receiver);
  const auto& head = receiver->head;
  const bool isEncoded = head && head->isEncoded();
  if (failure.code != CURLE_OK) {
    // Without the engine's options libcurl passes on a body in a coding that it doesn't know.
    const bool isCurls = verdict.code != CURLE_OK || isEncoded || failure.code == CURLE_BAD_CONTENT_ENCODING;
    const bool isHeadCut = !head && failure.code == CURLE_WEIRD_SERVER_REPLY && failure.words.empty();
    return require(isCurls || isHeadCut || isOwnRefusal(failure),
                   "what libcurl takes is refused for a known reason only");
  }
  require(head.has_value(), "a success has a head");
  require(head->status == verdict.status, "the status is libcurl's");
  require(verdict.lengths.size() <= 1, "an answer with two lengths isn't taken");
  require(head->isSuccess() == (head->status / 100 == 2), "only a 2xx is a success");
  requireRangeLaws(*head);
  requireValidatorLaws(*head);
  requireRedirectLaws(*head, verdict);
  if (isEncoded) return require(!head->bodyLength, "the length of a decoded body isn't known");
  require(verdict.code == CURLE_OK, "what libcurl refuses isn't taken");
  require(receiver->body == verdict.body, "the body is libcurl's");
  require(head->bodyLength.value_or(-1) == verdict.length, "the length is libcurl's");
}

}  // namespace installer::test
