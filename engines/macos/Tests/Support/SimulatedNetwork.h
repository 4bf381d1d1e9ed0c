// Servers that do what a script says, reached through URL sessions under virtual time.
//
// A URL without a script is a 404 on a host that has any other resource, and an unknown host (-1003)
// elsewhere. Callbacks come one at a time on the session's own queue, never from inside a call.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/URLSession.h"
#include "Support/SimulatedDispatch.h"
#include "Support/SimulatedFileSystem.h"

namespace installer::testing {

// What a server does with one request.
struct ServerAnswer {
  enum class Kind { answer, failure, redirect, silence };
  Kind kind = Kind::answer;
  int status = 200;
  std::string body{};
  std::string location{};      // of a redirect
  std::int64_t errorCode = 0;  // of a failure, in `ErrorDomain::url`
  std::string errorDescription{};
  std::optional<std::size_t> dropsAfter{};  // body bytes of this transfer, after which the connection is lost
  std::int64_t dropCode = URLErrorCode::networkConnectionLost;
  bool stalls = false;  // rather than drops: silence, until the request's own timeout
};

// The script of one URL. "Next" answers come first, one per request, in the order in which they were added;
// then the lasting one, which is the latest that was set.
class ServerResource {
 public:
  ServerResource& answers(int status, std::string body = {});
  ServerResource& answersNext(int status, std::string body = {});
  // The connection is lost after `bytes` of the body that `answers` gave (or will give), next time or always.
  ServerResource& dropsNext(std::size_t bytes, std::int64_t code = URLErrorCode::networkConnectionLost);
  ServerResource& dropsAlways(std::size_t bytes, std::int64_t code = URLErrorCode::networkConnectionLost);
  // After `bytes` of the body nothing more comes, until the request's own timeout.
  ServerResource& stallsNext(std::size_t bytes);
  ServerResource& fails(std::int64_t code, std::string description = {});
  ServerResource& failsNext(std::int64_t code, std::string description = {});
  ServerResource& redirects(std::string location, int status = 302);
  ServerResource& redirectsNext(std::string location, int status = 302);
  ServerResource& neverAnswers();  // until the request's own timeout
  ServerResource& neverAnswersNext();

  ServerResource& takes(Duration latency);  // before the first byte of each answer
  // Bodies arrive in pieces of `bytes`, one each `every`; unless set, in one piece at once.
  ServerResource& inPieces(std::size_t bytes, Duration every);
  ServerResource& withoutLength();                       // never says how long a body is
  ServerResource& withValidator(std::string validator);  // unless set, one that changes with the body
  ServerResource& withoutValidator();                    // dropped transfers leave nothing to resume
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

class SimulatedNetwork : public URLSessions {
 public:
  // One request that left the machine, redirects followed included, with the virtual time since the start.
  struct Request {
    std::string url;
    std::string method;
    CachePolicy cachePolicy;
    Duration timeoutInterval;
    std::int64_t offset = 0;  // first byte asked for; not zero for a resumed transfer
    Duration time{0};
  };

  // How a redirect ends that was refused and whose task was then cancelled: the two are a race on a real
  // machine.
  enum class RefusalEndsAs { cancellation, plainAnswer };

  SimulatedNetwork(SimulatedDispatch& dispatch, SimulatedFileSystem& files, Path temporaryDirectory);
  SimulatedNetwork(const SimulatedNetwork&) = delete;
  SimulatedNetwork& operator=(const SimulatedNetwork&) = delete;
  ~SimulatedNetwork() override;

  ServerResource& on(const std::string& url) { return resources_[url]; }
  void setRefusalEndsAs(RefusalEndsAs order) { refusalEndsAs_ = order; }
  void setOffline(bool offline = true) { offline_ = offline; }  // everything fails with -1009

  const std::vector<Request>& requests() const { return requests_; }
  // "GET https://host/path", with " from 700" behind it when a transfer was resumed there.
  std::vector<std::string> requestLines() const;
  std::int64_t bytesServed(const std::string& url) { return resources_[url].bytesServed_; }
  std::size_t sessionsMade() const { return sessions_.size(); }  // without the shared one
  // Sessions made and not yet invalidated, without the shared one.
  std::size_t openSessions() const;

  std::shared_ptr<URLSession> shared() override;
  std::shared_ptr<URLSession> make(std::shared_ptr<URLSessionDelegate> delegate) override;

  // Lets go of every delegate. The machine calls it before it goes.
  void shutDown();

 private:
  friend class SimulatedSession;
  friend class SimulatedTask;

  SimulatedDispatch& dispatch_;
  SimulatedFileSystem& files_;
  Path temporaryDirectory_;
  std::map<std::string, ServerResource> resources_;
  std::vector<Request> requests_;
  RefusalEndsAs refusalEndsAs_ = RefusalEndsAs::cancellation;
  bool offline_ = false;
  int filesMade_ = 0;
  std::shared_ptr<URLSession> shared_;
  std::vector<std::weak_ptr<class SimulatedSession>> sessions_;

  ServerResource* find(const URL& url, ServerAnswer& otherwise);
  bool knowsHost(const URL& url) const;
};

}  // namespace installer::testing
