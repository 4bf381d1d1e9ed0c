#include "Utils/SystemUtils.h"

#include <algorithm>
#include <array>
#include <memory>

#include "Base/ProcessWide.h"
#include "Base/Text.h"
#include "Models/Deployment.h"
#include "Platform/Machine.h"
#include "Utils/Log.h"

namespace installer {

namespace {

constexpr std::array kConnectionErrors{URLErrorCode::timedOut,
                                       URLErrorCode::cannotConnectToHost,
                                       URLErrorCode::networkConnectionLost,
                                       URLErrorCode::notConnectedToInternet,
                                       URLErrorCode::internationalRoamingOff,
                                       URLErrorCode::callIsActive,
                                       URLErrorCode::dataNotAllowed};

// Added to the request's own timeout, so that the request times out first.
constexpr Duration kGraceBeyondRequest{1.0};

ProcessWide<URL> connectivityProbeURL{
    [] { return std::make_unique<URL>(URL::parse(Deployment::connectivityProbeURL).value()); }};

bool countsAsReachable(const std::optional<HTTPURLResponse>& response, const std::optional<Error>& error) {
  return !error || (response && response->statusCode < 500);
}

// Not a warning: the caller reports what the result means. A cancelled probe is already logged as a timeout.
void logWhyUnreachable(const Error& error) {
  if (error.is(ErrorDomain::url, URLErrorCode::cancelled)) return;
  log("SystemUtils: connectivity probe failed: " + error.localizedDescription);
}

}  // namespace

bool SystemUtils::isArm64Architecture() {
  return machine().systemInfo.machineField().find("arm64") != std::string::npos;
}

bool SystemUtils::isInternetReachable(Duration timeout) {
  const URLRequest request{connectivityProbeURL.get(), "HEAD",
                           CachePolicy::reloadIgnoringLocalAndRemoteCacheData, timeout};
  const auto answered = machine().dispatch.makeSemaphore(0);
  const auto reachable = std::make_shared<bool>(false);  // outlives the wait: a late completion still writes
  const auto task = machine().sessions.shared()->dataTask(
      request, [answered, reachable](const std::optional<std::string>& /*data*/,
                                     const std::optional<HTTPURLResponse>& response,
                                     const std::optional<Error>& error) {
        *reachable = countsAsReachable(response, error);
        if (!*reachable) logWhyUnreachable(*error);
        answered->signal();
      });
  task->resume();
  if (!answered->waitFor(timeout + kGraceBeyondRequest)) {
    task->cancel();
    logWarn("SystemUtils: connectivity probe timed out after {}s", doubleText(timeout.count()));
    return false;
  }
  return *reachable;
}

bool SystemUtils::isNetworkConnectionError(const Error& error) {
  if (error.domain != ErrorDomain::url) return false;
  if (std::ranges::find(kConnectionErrors, error.code) == kConnectionErrors.end()) return false;
  logWarn("Network error detected: {} code {}: {}", error.domain, error.code, error.localizedDescription);
  return true;
}

void Telemetry::report_to_server(const std::string& /*os*/, const std::string& /*e*/,
                                 const std::string& /*eStr*/, const std::optional<std::string>& /*appId*/) {
  log("Telemetry disabled (no user consent flow yet) — skipping report");
}

}  // namespace installer
