// One HTTP request and its response on libcurl. Redirects aren't followed here.
// Everything happens on the engine's thread.
#pragma once

#include <array>
#include <chrono>
#include <curl/curl.h>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/URL.h"
#include "Platform/Dispatch.h"
#include "Platform/Linux/HTTP/CurlErrors.h"
#include "Platform/Linux/HTTP/ResponseHead.h"

namespace installer {

class CurlConnections;

struct HTTPRequest {
  URL url;
  std::string method = "GET";
  std::vector<std::string> fields;  // whole lines, such as "Range: bytes=5-"
  Duration silence{60.0};           // the longest time without a byte
};

class CurlTransfer {
 public:
  using Clock = std::chrono::steady_clock;

  enum class Verdict { goOn, stop };

  // libcurl calls all functions except `didEnd`, so only `didEnd` may start or drop transfers.
  class Client {
   public:
    virtual ~Client() = default;
    // Called once, before the first byte of the body, and always before the end of a success.
    virtual Verdict didReceiveHead(const ResponseHead& head) = 0;
    virtual Verdict didReceiveBody(std::string_view bytes) = 0;
    // The last call: `CURLE_OK` after a whole body, `CURLE_WRITE_ERROR` after a verdict to stop.
    virtual void didEnd(const CurlFailure& failure) = 0;
  };

  CurlTransfer(const CurlConnections& connections, HTTPRequest request, std::shared_ptr<Client> client);
  ~CurlTransfer();
  CurlTransfer(const CurlTransfer&) = delete;
  CurlTransfer& operator=(const CurlTransfer&) = delete;

  CURL* handle() const { return handle_; }
  Client& client() const { return *client_; }
  // The time at which the transfer fails if no byte arrives before.
  Clock::time_point deadline() const;
  CurlFailure failure(CURLcode code) const;
  CurlFailure silenceFailure() const;

 private:
  HTTPRequest request_;
  std::shared_ptr<Client> client_;
  CURL* handle_;
  curl_slist* fields_ = nullptr;
  std::array<char, CURL_ERROR_SIZE> words_{};
  bool startsHead_ = true;  // the next line begins a head
  bool isHeadComplete_ = false;
  std::size_t headBytes_ = 0;            // of all heads, including interim ones
  std::optional<CurlFailure> rejected_;  // why the head was rejected
  Clock::time_point lastActivity_ = Clock::now();

  void setFields();
  std::size_t receiveHeaderLine(std::string_view line);
  Verdict judgeHeaderLine(std::string_view line);
  bool isInterim() const;
  Verdict completeHead();
  ResponseHead readHead() const;
  Verdict reject(std::string words);
  std::size_t receiveBody(std::string_view bytes);

  static std::size_t onHeader(char* bytes, std::size_t size, std::size_t count, void* transfer);
  static std::size_t onBody(char* bytes, std::size_t size, std::size_t count, void* transfer);
};

}  // namespace installer
