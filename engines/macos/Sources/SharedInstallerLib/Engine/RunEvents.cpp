#include "Engine/RunEvents.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "Engine/EngineEmitter.h"
#include "Engine/EngineEvent.h"
#include "Models/AppInfo.h"
#include "Platform/Machine.h"
#include "Utils/BundledPackages.h"
#include "Utils/CDNSource.h"
#include "Utils/DiskRequirement.h"
#include "Utils/InstallerConfig.h"

namespace installer::RunEvents {

AppResultEvent appResult(const AppInfo& app, AppStatus status) {
  AppResultEvent event;
  event.app = rawValue(app.id);
  event.status = status;
  return event;
}

AppResultEvent failure(const AppInfo& app, ErrorCode errorCode) {
  auto event = appResult(app, AppStatus::failed);
  event.errorCode = errorCode;
  return event;
}

AppResultEvent emitted(AppResultEvent event) {
  EngineEmitter::emit({EngineEvent::AppResult{event}});
  return event;
}

void emitLog(EventLevel level, const std::string& message) {
  EngineEmitter::emit({EngineEvent::Log{.level = level, .message = message}});
}

ExitCode done(Action action, ExitCode exitCode, std::vector<AppResultEvent> results) {
  EngineEmitter::emit(
      {EngineEvent::Done{.action = action, .exitCode = exitCode, .results = std::move(results)}});
  return exitCode;
}

ExitCode stopWithoutApps(Action action) {
  emitLog(EventLevel::error, "No valid app identifiers supplied");
  return done(action, ExitCode::invalidArguments, {});
}

std::vector<std::string> statuses(const std::vector<AppResultEvent>& events) {
  std::vector<std::string> words;
  words.reserve(events.size());
  for (const auto& event : events) words.emplace_back(rawValue(event.status));
  return words;
}

}  // namespace installer::RunEvents

namespace installer::UpdateEntries {

namespace {

// An App Store copy isn't subtracted, because it stays on the disk.
std::optional<std::int64_t> requiredBytes(const AppUpdateStatus& status,
                                          std::optional<std::int64_t> downloadBytes) {
  if (!downloadBytes) return std::nullopt;
  const auto reclaimable = status.isAppStore ? std::nullopt : status.installedPath;
  return DiskRequirement::peakBytes(status.app, *downloadBytes, reclaimable);
}

std::optional<std::string> webUrl(const AppInfo& app) {
  if (auto configured = InstallerConfig::webURL(std::string{rawValue(app.id)})) return configured;
  if (!app.webURL) return std::nullopt;
  return app.webURL->absoluteString();
}

// From the manifest, else the size of the image file.
std::optional<std::int64_t> bundledPackageSize(const AppInfo& app, PackageSourceMode mode) {
  if (mode == PackageSourceMode::online) return std::nullopt;
  if (const auto size = BundledPackages::bundledSize(app)) return size;
  const auto folder = BundledPackages::packagesFolder();
  if (!folder) return std::nullopt;
  const auto attributes = machine().files.attributes(joined(*folder, app.tempFileName));
  if (!attributes) return std::nullopt;
  return attributes->size;
}

std::optional<std::string> offeredVersion(const AppUpdateStatus& status, PackageSourceMode mode) {
  if (status.latestVersion || mode == PackageSourceMode::online) return status.latestVersion;
  return BundledPackages::bundledVersion(status.app);
}

}  // namespace

CatalogAppEvent catalogEntry(const AppUpdateStatus& status, PackageSourceMode mode) {
  const auto& app = status.app;
  const auto bundledSize = bundledPackageSize(app, mode);
  const auto sizeBytes = bundledSize ? bundledSize : app.sizeBytes;
  const auto latestVersion = offeredVersion(status, mode);
  return {
      .id = std::string{rawValue(app.id)},
      .displayName = app.displayName,
      .descriptionCode = app.descriptionCode,
      .iconName = app.iconName,
      .updateAvailable = status.updateAvailable(latestVersion),
      .installedVersion = status.installedVersion,
      .latestVersion = latestVersion,
      .sizeBytes = sizeBytes,
      .source = status.source(),
      .webUrl = webUrl(app),
      .requiredBytes = requiredBytes(status, sizeBytes),
      .installedPath = status.installedPath,
      .releaseNotes = std::nullopt,
  };
}

EngineEvent::UpdateCheckEntry updateCheckEntry(const AppUpdateStatus& status) {
  return {
      .id = std::string{rawValue(status.app.id)},
      .updateAvailable = status.updateAvailable(),
      .latestVersion = status.latestVersion,
      .sizeBytes = status.downloadSizeBytes,
      .requiredBytes = requiredBytes(status, status.downloadSizeBytes),
      .releaseNotes = CDNSource::fetchReleaseNotes(status.app, CDNSource::kFetchTimeout),
  };
}

}  // namespace installer::UpdateEntries
