// Running applications that quit at once, quit later, ignore the request or survive a forced end.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Platform/RunningApplications.h"
#include "Support/SimulatedDispatch.h"

namespace installer::test {

// An application's reaction to a request to quit.
struct QuitBehaviour {
  std::optional<Duration> quitsAfter = Duration{0};  // absent: ignores the request
  bool refusesForce = false;                         // survives a forced end

  static QuitBehaviour quits(Duration after = Duration{0}) { return {after, false}; }
  static QuitBehaviour ignoresQuit() { return {std::nullopt, false}; }
  static QuitBehaviour survivesForce() { return {std::nullopt, true}; }
};

class SimulatedRunningApps : public RunningApplications {
 public:
  // One request to an application, with the virtual time since the start.
  struct Request {
    enum class Kind { terminate, forceTerminate } kind;
    std::int32_t processIdentifier;
    Duration time;
  };

  explicit SimulatedRunningApps(SimulatedDispatch& dispatch) : dispatch_{dispatch} {}

  void launch(const std::string& identifier, std::optional<std::string> name, std::int32_t processIdentifier,
              QuitBehaviour behaviour = QuitBehaviour::quits());
  bool isRunning(std::int32_t processIdentifier) const;

  const std::vector<Request>& requests() const { return requests_; }
  // "terminate 4711" or "forceTerminate 4711", in order.
  std::vector<std::string> requestLines() const;

  std::vector<RunningApplication> instances(const std::string& bundleIdentifier) override;
  void terminate(const RunningApplication& application) override;
  void forceTerminate(const RunningApplication& application) override;

 private:
  struct Process {
    std::string identifier;
    std::optional<std::string> name;
    std::int32_t processIdentifier;
    QuitBehaviour behaviour;
  };

  SimulatedDispatch& dispatch_;
  std::vector<Process> processes_;
  std::vector<Request> requests_;

  void end(std::int32_t processIdentifier);
};

}  // namespace installer::test
