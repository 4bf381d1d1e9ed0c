#include "Platform/Linux/HTTP/CurlTransfer.h"

#include <fmt/format.h>
#include <utility>

#include "Platform/Linux/HTTP/CurlConnections.h"
#include "Platform/Linux/HTTP/CurlLibrary.h"

namespace installer {

namespace {

constexpr std::size_t kMaximumHead = std::size_t{128} << 10U;  // bounds the memory for an endless head
constexpr long kReceiveBufferBytes = 256L * 1024L;

int statusOf(CURL* handle) {
  long status = 0;
  curl().easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
  return static_cast<int>(status);
}

// A transfer of compressed bytes can't be resumed, so uncompressed bytes are preferred. A body that the
// server sends compressed anyway is decoded.
constexpr const char* kAcceptedEncodings = "identity, *;q=0.5";

}  // namespace

CurlTransfer::CurlTransfer(const CurlConnections& connections, HTTPRequest request,
                           std::shared_ptr<Client> client)
    : request_{std::move(request)}, client_{std::move(client)}, handle_{curl().easy_init()} {
  // The checked text itself, with its path unchanged: a second parse could give another address.
  curl().easy_setopt(handle_, CURLOPT_URL, request_.url.absoluteString().c_str());
  curl().easy_setopt(handle_, CURLOPT_PATH_AS_IS, 1L);
  curl().easy_setopt(handle_, CURLOPT_PROTOCOLS_STR, "https");
  curl().easy_setopt(handle_, CURLOPT_FOLLOWLOCATION, 0L);
  // One transfer per connection: a stalled image never delays metadata.
  curl().easy_setopt(handle_, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  curl().easy_setopt(handle_, CURLOPT_NOSIGNAL, 1L);
  // An unanswered name lookup must not block the thread that ends this transfer.
  curl().easy_setopt(handle_, CURLOPT_QUICK_EXIT, 1L);
  curl().easy_setopt(handle_, CURLOPT_USERAGENT, "Kelo-Desk-Installer");
  curl().easy_setopt(handle_, CURLOPT_ACCEPT_ENCODING, kAcceptedEncodings);
  curl().easy_setopt(handle_, CURLOPT_BUFFERSIZE, kReceiveBufferBytes);
  curl().easy_setopt(handle_, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  curl().easy_setopt(handle_, CURLOPT_ERRORBUFFER, words_.data());
  curl().easy_setopt(handle_, CURLOPT_HEADERFUNCTION, &CurlTransfer::onHeader);
  curl().easy_setopt(handle_, CURLOPT_HEADERDATA, this);
  curl().easy_setopt(handle_, CURLOPT_WRITEFUNCTION, &CurlTransfer::onBody);
  curl().easy_setopt(handle_, CURLOPT_WRITEDATA, this);
  connections.apply(handle_, request_.url);
  setFields();
}

CurlTransfer::~CurlTransfer() {
  curl().easy_cleanup(handle_);
  curl().slist_free_all(fields_);
}

void CurlTransfer::setFields() {
  if (request_.method == "HEAD") curl().easy_setopt(handle_, CURLOPT_NOBODY, 1L);
  for (const auto& field : request_.fields) fields_ = curl().slist_append(fields_, field.c_str());
  curl().easy_setopt(handle_, CURLOPT_HTTPHEADER, fields_);
}

CurlTransfer::Clock::time_point CurlTransfer::deadline() const {
  return lastActivity_ + std::chrono::duration_cast<Clock::duration>(request_.silence);
}

CurlFailure CurlTransfer::failure(CURLcode code) const {
  if (rejected_) return *rejected_;
  if (code == CURLE_OK && !isHeadComplete_) code = CURLE_WEIRD_SERVER_REPLY;
  CurlFailure failure{.code = code, .osErrno = 0, .words = words_.data()};
  curl().easy_getinfo(handle_, CURLINFO_OS_ERRNO, &failure.osErrno);
  long tunnelStatus = 0;
  curl().easy_getinfo(handle_, CURLINFO_HTTP_CONNECTCODE, &tunnelStatus);
  // libcurl reports a proxy's refusal as a failed reception.
  if (code != CURLE_OK && tunnelStatus > 299) failure.code = CURLE_PROXY;
  return failure;
}

CurlFailure CurlTransfer::silenceFailure() const {
  return {.code = CURLE_OPERATION_TIMEDOUT,
          .osErrno = 0,
          .words =
              fmt::format("The request timed out: nothing arrived for {} seconds", request_.silence.count())};
}

// An empty line ends a head. Interim answers and the fields after a body aren't reported.
std::size_t CurlTransfer::receiveHeaderLine(std::string_view line) {
  lastActivity_ = Clock::now();
  if (isHeadComplete_) return line.size();
  headBytes_ += line.size();
  return judgeHeaderLine(line) == Verdict::goOn ? line.size() : 0;
}

CurlTransfer::Verdict CurlTransfer::judgeHeaderLine(std::string_view line) {
  if (headBytes_ > kMaximumHead) return reject("the response has a head that is too long");
  // libcurl ends the head at a line that begins with one, and reports another value of a field than it acts
  // on.
  const auto carriageReturn = line.find('\r');
  if (carriageReturn != std::string_view::npos && line.substr(carriageReturn) != "\r\n") {
    return reject("the response has a carriage return within a line");
  }
  const bool isLast = line == "\r\n" || line == "\n";
  // libcurl doesn't read the status after a lower-case "http/" and reports 200.
  if (std::exchange(startsHead_, isLast) && !line.starts_with("HTTP/")) {
    return reject("the response has no status line");
  }
  return isLast && !isInterim() ? completeHead() : Verdict::goOn;
}

// True when another head follows. libcurl reads the body after an unrequested 101.
bool CurlTransfer::isInterim() const {
  const auto status = statusOf(handle_);
  return status < 200 && status != 101;
}

CurlTransfer::Verdict CurlTransfer::completeHead() {
  isHeadComplete_ = true;
  const auto head = readHead();
  if (head.contradictsItself()) return reject("the response has two different lengths");
  // Without content decoding, libcurl neither decodes nor refuses these codings.
  if (head.hasForeignTransferCoding())
    return reject("the response has a transfer coding that wasn't requested");
  if (!head.isEncoded()) curl().easy_setopt(handle_, CURLOPT_HTTP_CONTENT_DECODING, 0L);
  return client_->didReceiveHead(head);
}

// Uses libcurl's own parse of the head, so that a second one can't differ from it.
ResponseHead CurlTransfer::readHead() const {
  ResponseHead head;
  head.status = statusOf(handle_);
  const char* url = nullptr;
  curl().easy_getinfo(handle_, CURLINFO_EFFECTIVE_URL, &url);
  head.url = URL::parse(url == nullptr ? "" : url).value_or(URL{});
  curl_header* field = nullptr;
  while ((field = curl().easy_nextheader(handle_, CURLH_HEADER, -1, field)) != nullptr) {
    head.addField(field->name, field->value);
  }
  curl_off_t length = -1;
  curl().easy_getinfo(handle_, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
  if (length >= 0 && !head.isEncoded()) head.bodyLength = length;
  return head;
}

CurlTransfer::Verdict CurlTransfer::reject(std::string words) {
  rejected_ = CurlFailure{.code = CURLE_WEIRD_SERVER_REPLY, .osErrno = 0, .words = std::move(words)};
  return Verdict::stop;
}

std::size_t CurlTransfer::receiveBody(std::string_view bytes) {
  lastActivity_ = Clock::now();
  if (!isHeadComplete_ && completeHead() == Verdict::stop) return 0;
  return client_->didReceiveBody(bytes) == Verdict::goOn ? bytes.size() : 0;
}

std::size_t CurlTransfer::onHeader(char* bytes, std::size_t size, std::size_t count, void* transfer) {
  return static_cast<CurlTransfer*>(transfer)->receiveHeaderLine({bytes, size * count});
}

std::size_t CurlTransfer::onBody(char* bytes, std::size_t size, std::size_t count, void* transfer) {
  return static_cast<CurlTransfer*>(transfer)->receiveBody({bytes, size * count});
}

}  // namespace installer
