// A server's behaviour for one URL. The simulated network and the real server on the loopback address use the
// same scripts.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "Base/Error.h"
#include "Platform/Dispatch.h"

namespace installer::test {

// A server's behaviour for one request.
struct ServerAnswer {
  enum class Kind { answer, failure, redirect, silence };
  Kind kind = Kind::answer;
  int status = 200;
  std::string body{};
  std::string location{};      // of a redirect
  std::int64_t errorCode = 0;  // of a failure, in `ErrorDomain::url`
  std::string errorDescription{};
  std::optional<std::size_t> dropsAfter{};  // body bytes of this transfer before the connection is lost
  std::int64_t dropCode = URLErrorCode::networkConnectionLost;
  bool stalls = false;  // instead of the loss: silence until the request's own timeout
};

ServerAnswer answering(int status, std::string body);
ServerAnswer failing(std::int64_t code, std::string description);
ServerAnswer redirecting(std::string location, int status);

// The script of one URL. "Next" answers are used first, one per request, in the order of their addition; then
// the lasting one, which is the latest that was set.
class ServerResource {
 public:
  ServerResource& answers(int status, std::string body = {});
  ServerResource& answersNext(int status, std::string body = {});
  // The connection is lost after `bytes` of the body of `answers`, for the next request or always.
  ServerResource& dropsNext(std::size_t bytes, std::int64_t code = URLErrorCode::networkConnectionLost);
  ServerResource& dropsAlways(std::size_t bytes, std::int64_t code = URLErrorCode::networkConnectionLost);
  // After `bytes` of the body nothing arrives until the request's own timeout.
  ServerResource& stallsNext(std::size_t bytes);
  ServerResource& fails(std::int64_t code, std::string description = {});
  ServerResource& failsNext(std::int64_t code, std::string description = {});
  ServerResource& redirects(std::string location, int status = 302);
  ServerResource& redirectsNext(std::string location, int status = 302);
  ServerResource& neverAnswers();  // until the request's own timeout
  ServerResource& neverAnswersNext();

  ServerResource& takes(Duration latency);  // before the first byte of each answer
  // Bodies arrive in pieces of `bytes`, one per `every`; by default in one piece at once.
  ServerResource& inPieces(std::size_t bytes, Duration every);
  ServerResource& withoutLength();                       // never sends the length of a body
  ServerResource& withValidator(std::string validator);  // by default one that depends on the body
  ServerResource& withoutValidator();                    // lost transfers can't be resumed
  ServerResource& ignoresRanges();                       // answers a resumed transfer with the whole body

 private:
  friend class SimulatedNetwork;
  friend class SimulatedTask;
  friend class LoopbackServer;  // serves the same scripts over real sockets
  ServerAnswer lasting_;
  std::deque<ServerAnswer> next_;
  std::string body_;  // of the lasting answer
  Duration latency_{0};
  std::size_t pieceBytes_ = 0;
  Duration pieceInterval_{0};
  bool saysLength_ = true;
  bool hasValidator_ = true;
  bool acceptsRanges_ = true;
  std::optional<std::string> validator_;
  std::int64_t bytesServed_ = 0;

  ServerAnswer takeNext();
  std::optional<std::string> validatorOf(const std::string& body) const;
};

}  // namespace installer::test
