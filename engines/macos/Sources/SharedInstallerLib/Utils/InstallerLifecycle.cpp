#include "Utils/InstallerLifecycle.h"

#include <string>

#include "Base/Mutex.h"
#include "Base/ProcessWide.h"
#include "Base/Text.h"
#include "Platform/Machine.h"
#include "Utils/BundledPackages.h"
#include "Utils/InstallerConfig.h"
#include "Utils/Log.h"

namespace installer {

namespace {

constexpr Duration kProbeLimit{8.0};

// The lock isn't held during the probe. When two probes run at once, the later result is kept.
struct SourceVerdict {
  Mutex verdictLock;
  bool reached GUARDED_BY(verdictLock) = false;
  // Absent while `reached` is true: not retired, for the rest of the process.
  std::optional<InstallerRetirement> retirement GUARDED_BY(verdictLock);
};

SourceVerdict& sourceVerdict() {
  static ProcessWide<SourceVerdict> instance{[] { return std::make_unique<SourceVerdict>(); }};
  return instance.get();
}

// The value of `text`; absent unless it is 1 to `length` digits.
std::optional<unsigned> digits(std::string_view text, std::size_t length) {
  return text.size() > length ? std::nullopt : wholeNumber<unsigned>(text);
}

// Like a date formatter for "yyyy-MM-dd" that isn't lenient: a year of one to four digits, taken as written
// (20 is the year 20), a month and a day of one or two digits, hyphens between them. The date must exist.
std::optional<std::chrono::sys_days> parseDate(std::string_view text) {
  const auto afterYear = text.find('-');
  const auto afterMonth = text.rfind('-');
  if (afterYear == afterMonth) return std::nullopt;
  const auto year = digits(text.substr(0, afterYear), 4);
  const auto month = digits(text.substr(afterYear + 1, afterMonth - afterYear - 1), 2);
  const auto day = digits(text.substr(afterMonth + 1), 2);
  if (!year || !month || !day || *year == 0) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year{static_cast<int>(*year)},
                                         std::chrono::month{*month}, std::chrono::day{*day}};
  if (!date.ok()) return std::nullopt;
  return std::chrono::sys_days{date};
}

struct ProbeAnswer {
  bool isHTTP = false;
  std::optional<Error> error;
};

// Any HTTP answer proves that the internet is reachable, also a 404 or 500.
bool reachable(const URL& url) {
  const URLRequest request{url, "HEAD", CachePolicy::reloadIgnoringLocalCacheData, kProbeLimit};
  const auto answered = machine().dispatch.makeSemaphore(0);
  const auto answer = std::make_shared<ProbeAnswer>();  // outlives the wait: a late completion still writes
  const auto task = machine().sessions.shared()->dataTask(
      request,
      [answered, answer](const std::optional<std::string>& /*data*/,
                         const std::optional<HTTPURLResponse>& response, const std::optional<Error>& error) {
        answer->isHTTP = response.has_value();
        answer->error = error;
        answered->signal();
      });
  task->resume();
  if (!answered->waitFor(kProbeLimit)) {
    task->cancel();
    logWarn("InstallerLifecycle: control probe of {} timed out", url.absoluteString());
    return false;
  }
  if (answer->error) {
    logWarn("InstallerLifecycle: control probe of {} failed: {}", url.absoluteString(),
            answer->error->localizedDescription);
    return false;
  }
  return answer->isHTTP;
}

// The download page's address; absent when a probe of it would prove nothing.
std::optional<URL> probeTarget(const std::string& page) {
  auto url = URL::parse(page);
  if (!url) {
    logWarn(
        "InstallerLifecycle: downloadPageUrl '{}' is not a valid URL — cannot confirm whether the CDN is retired, so treating this as a network problem",
        page);
    return std::nullopt;
  }
  if (lowercased(url->scheme().value_or("")) != "https") {
    logWarn(
        "InstallerLifecycle: downloadPageUrl '{}' is not https — refusing to probe it, so this cannot be confirmed as a retired CDN. Fix the key in installer_config.json",
        page);
    return std::nullopt;
  }
  return url;
}

// The page is a fixed public address on another service than the CDN. Its answer therefore distinguishes a
// missing CDN tree from a machine without a connection.
std::optional<InstallerRetirement> probeSourceRetired() {
  const auto& page = InstallerConfig::downloadPageURL();
  const auto url = probeTarget(page);
  if (!url) return std::nullopt;
  const auto host = url->host().value_or(page);
  if (!reachable(*url)) {
    logWarn(
        "InstallerLifecycle: a package lookup returned 'not found', but {} is also unreachable — this is the machine's connection, not a retired CDN",
        host);
    return std::nullopt;
  }
  logError(
      "InstallerLifecycle: a package lookup returned 'not found' while {} is reachable — the CDN tree this installer was built against is gone",
      host);
  return InstallerRetirement{RetirementReason::sourceUnavailable, page, std::nullopt};
}

}  // namespace

bool InstallerLifecycle::isOfflineBuild() {
  static ProcessWide<bool> instance{
      [] { return std::make_unique<bool>(BundledPackages::bundledPackagesAvailable()); }};
  return instance.get();
}

std::optional<InstallerRetirement> InstallerLifecycle::expiry() {
  const auto date = InstallerConfig::expiresOn(isOfflineBuild());
  if (!date) return std::nullopt;
  const auto lastGoodDay = parseDate(*date);
  if (!lastGoodDay) {
    logWarn("InstallerLifecycle: expiresOn '{}' is not yyyy-MM-dd — ignoring it", *date);
    return std::nullopt;
  }
  // In whole days: the clock's unit overflows for the far dates that mean "never".
  if (std::chrono::floor<std::chrono::days>(machine().dispatch.now()) <= *lastGoodDay) return std::nullopt;
  log("InstallerLifecycle: this installer expired on {}", *date);
  return InstallerRetirement{RetirementReason::expired, InstallerConfig::downloadPageURL(), date};
}

std::optional<InstallerRetirement> InstallerLifecycle::confirmSourceRetired() {
  auto& verdict = sourceVerdict();
  {
    const MutexLock lock{verdict.verdictLock};
    if (verdict.reached) return verdict.retirement;
  }
  auto result = probeSourceRetired();
  const MutexLock lock{verdict.verdictLock};
  verdict.reached = true;
  verdict.retirement = result;
  return result;
}

std::optional<InstallerRetirement> InstallerLifecycle::reachedSourceVerdict() {
  auto& verdict = sourceVerdict();
  const MutexLock lock{verdict.verdictLock};
  return verdict.retirement;
}

std::optional<InstallerRetirement> InstallerLifecycle::currentRetirement() {
  if (auto expired = expiry()) return expired;
  return reachedSourceVerdict();
}

}  // namespace installer
