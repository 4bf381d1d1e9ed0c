#include "Support/SimulatedRunningApps.h"

#include <algorithm>
#include <utility>

namespace installer::test {

void SimulatedRunningApps::launch(const std::string& identifier, std::optional<std::string> name,
                                  std::int32_t processIdentifier, QuitBehaviour behaviour) {
  processes_.push_back({identifier, std::move(name), processIdentifier, behaviour});
}

bool SimulatedRunningApps::isRunning(std::int32_t processIdentifier) const {
  return std::ranges::any_of(processes_,
                             [&](const Process& one) { return one.processIdentifier == processIdentifier; });
}

std::vector<std::string> SimulatedRunningApps::requestLines() const {
  std::vector<std::string> lines;
  for (const auto& request : requests_) {
    const auto* const verb = request.kind == Request::Kind::terminate ? "terminate " : "forceTerminate ";
    lines.push_back(verb + std::to_string(request.processIdentifier));
  }
  return lines;
}

std::vector<RunningApplication> SimulatedRunningApps::instances(const std::string& bundleIdentifier) {
  std::vector<RunningApplication> result;
  for (const auto& process : processes_) {
    if (process.identifier != bundleIdentifier) continue;
    result.push_back({process.name, process.processIdentifier, nullptr});
  }
  return result;
}

void SimulatedRunningApps::terminate(const RunningApplication& application) {
  const auto identifier = application.processIdentifier;
  requests_.push_back({Request::Kind::terminate, identifier, dispatch_.elapsed()});
  for (const auto& process : processes_) {
    if (process.processIdentifier != identifier || !process.behaviour.quitsAfter) continue;
    dispatch_.schedule(*process.behaviour.quitsAfter, [this, identifier] { end(identifier); });
  }
}

void SimulatedRunningApps::forceTerminate(const RunningApplication& application) {
  const auto identifier = application.processIdentifier;
  requests_.push_back({Request::Kind::forceTerminate, identifier, dispatch_.elapsed()});
  std::erase_if(processes_, [identifier](const Process& one) {
    return one.processIdentifier == identifier && !one.behaviour.refusesForce;
  });
}

void SimulatedRunningApps::end(std::int32_t processIdentifier) {
  std::erase_if(processes_, [&](const Process& one) { return one.processIdentifier == processIdentifier; });
}

}  // namespace installer::test
