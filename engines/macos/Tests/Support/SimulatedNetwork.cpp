#include "Support/SimulatedNetwork.h"

#include <algorithm>
#include <utility>

#include "Support/SimulatedSession.h"

namespace installer::test {

SimulatedNetwork::SimulatedNetwork(SimulatedDispatch& dispatch, SimulatedFileSystem& files, FaultPlan& plan,
                                   Path temporaryDirectory)
    : dispatch_{dispatch}, files_{files}, plan_{plan}, temporaryDirectory_{std::move(temporaryDirectory)} {
}

SimulatedNetwork::~SimulatedNetwork() = default;

std::vector<std::string> SimulatedNetwork::requestLines() const {
  std::vector<std::string> lines;
  for (const auto& request : requests_) {
    auto line = request.method + " " + request.url;
    if (request.offset > 0) line += " from " + std::to_string(request.offset);
    lines.push_back(std::move(line));
  }
  return lines;
}

std::size_t SimulatedNetwork::openSessions() const {
  return static_cast<std::size_t>(std::ranges::count_if(sessions_, [](const auto& weak) {
    const auto session = weak.lock();
    return session != nullptr && !session->isInvalidated();
  }));
}

std::shared_ptr<URLSession> SimulatedNetwork::shared() {
  if (shared_ == nullptr) shared_ = std::make_shared<SimulatedSession>(*this, nullptr);
  return shared_;
}

std::shared_ptr<URLSession> SimulatedNetwork::make(std::shared_ptr<URLSessionDelegate> delegate) {
  auto session = std::make_shared<SimulatedSession>(*this, std::move(delegate));
  sessions_.push_back(session);
  return session;
}

void SimulatedNetwork::shutDown() {
  for (const auto& weak : sessions_) {
    if (const auto session = weak.lock()) session->letGo();
  }
  shared_ = nullptr;
}

bool SimulatedNetwork::knowsHost(const URL& url) const {
  return std::ranges::any_of(resources_, [&url](const auto& entry) {
    const auto known = URL::parse(entry.first);
    return known && known->host() == url.host();
  });
}

std::optional<ServerAnswer> SimulatedNetwork::plannedFault(const URLRequest& request) {
  const std::vector<std::pair<std::string, ServerAnswer>> answers{
      {"offline", failing(URLErrorCode::notConnectedToInternet, {})},
      {"connection lost", failing(URLErrorCode::networkConnectionLost, {})},
      {"silence", {.kind = ServerAnswer::Kind::silence}},
      {"404", answering(404, "not found")},
      {"500", answering(500, "broken")},
      {"an empty answer", answering(200, "")},
      {"a wrong answer", answering(200, "<html></html>")},
  };
  std::vector<std::string> faults;
  for (const auto& [name, answer] : answers) faults.push_back(name);
  const auto fault = plan_.faultOf(request.method, request.url.absoluteString(), std::move(faults));
  return fault ? std::optional{answers.at(*fault).second} : std::nullopt;
}

// The script of `url`; null without one, and then `otherwise` is the answer.
ServerResource* SimulatedNetwork::find(const URL& url, ServerAnswer& otherwise) {
  if (offline_) {
    otherwise =
        failing(URLErrorCode::notConnectedToInternet, "The Internet connection appears to be offline.");
    return nullptr;
  }
  const auto found = resources_.find(url.absoluteString());
  if (found != resources_.end()) return &found->second;
  otherwise = knowsHost(url) ? answering(404, "not found")
                             : failing(URLErrorCode::cannotFindHost,
                                       "A server with the specified hostname could not be found.");
  return nullptr;
}

}  // namespace installer::test
