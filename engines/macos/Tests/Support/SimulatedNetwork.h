// Servers with scripts, used through URL sessions in virtual time.
//
// A URL without a script is a 404 on a host that has another resource, else an unknown host (-1003).
// Callbacks run one at a time on the session's own queue, never inside a call.
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
#include "Support/ServerResource.h"
#include "Support/SimulatedDispatch.h"
#include "Support/SimulatedFileSystem.h"

namespace installer::test {

class SimulatedNetwork : public URLSessions {
 public:
  // One request of the machine, also for a followed redirect, with the virtual time since the start.
  struct Request {
    std::string url;
    std::string method;
    CachePolicy cachePolicy;
    Duration timeoutInterval;
    std::int64_t offset = 0;  // first requested byte; not zero for a resumed transfer
    Duration time{0};
  };

  // The end of a task whose redirect was refused and which was then cancelled. On a real machine this is a
  // race.
  enum class RefusalEndsAs { cancellation, plainAnswer };

  SimulatedNetwork(SimulatedDispatch& dispatch, SimulatedFileSystem& files, FaultPlan& plan,
                   Path temporaryDirectory);
  SimulatedNetwork(const SimulatedNetwork&) = delete;
  SimulatedNetwork& operator=(const SimulatedNetwork&) = delete;
  ~SimulatedNetwork() override;

  ServerResource& on(const std::string& url) { return resources_[url]; }
  void setRefusalEndsAs(RefusalEndsAs order) { refusalEndsAs_ = order; }
  void setOffline(bool offline = true) { offline_ = offline; }  // everything fails with -1009

  const std::vector<Request>& requests() const { return requests_; }
  // "GET https://host/path", followed by " from 700" for a transfer resumed at that byte.
  std::vector<std::string> requestLines() const;
  std::int64_t bytesServed(const std::string& url) { return resources_[url].bytesServed_; }
  std::size_t sessionsMade() const { return sessions_.size(); }  // without the shared one
  // Sessions made and not yet invalidated, without the shared one.
  std::size_t openSessions() const;

  std::shared_ptr<URLSession> shared() override;
  std::shared_ptr<URLSession> make(std::shared_ptr<URLSessionDelegate> delegate) override;

  // Releases every delegate. The machine's destructor calls it.
  void shutDown();

 private:
  friend class SimulatedSession;
  friend class SimulatedTask;

  SimulatedDispatch& dispatch_;
  SimulatedFileSystem& files_;
  FaultPlan& plan_;
  Path temporaryDirectory_;
  std::map<std::string, ServerResource> resources_;
  std::vector<Request> requests_;
  RefusalEndsAs refusalEndsAs_ = RefusalEndsAs::cancellation;
  bool offline_ = false;
  int filesMade_ = 0;
  std::shared_ptr<URLSession> shared_;
  std::vector<std::weak_ptr<class SimulatedSession>> sessions_;

  // The fault that the plan has for a request, if any, as the answer to it.
  std::optional<ServerAnswer> plannedFault(const URLRequest& request);
  ServerResource* find(const URL& url, ServerAnswer& otherwise);
  bool knowsHost(const URL& url) const;
};

}  // namespace installer::test
