#include "Installer/OfflinePackageProvider.h"

#include <fmt/format.h>

#include "Platform/Machine.h"
#include "Utils/BundledPackages.h"
#include "Utils/Log.h"

namespace installer {

namespace {

Expected<Path, AcquisitionError> locateImage(const AppInfo& app) {
  log("OfflinePackageProvider: Locating bundled DMG for {}", app.displayName);
  const auto packages = BundledPackages::packagesFolder();
  if (!packages) {
    log("OfflinePackageProvider: Bundle resourceURL is nil");
    return std::unexpected(ProviderError::packageNotFound(app.displayName));
  }
  auto file = joined(*packages, app.tempFileName);
  if (!machine().files.fileExists(file)) {
    logError("OfflinePackageProvider: DMG not found at {}", file);
    return std::unexpected(ProviderError::packageNotFound(app.displayName));
  }
  log("OfflinePackageProvider: Found bundled DMG at {}", file);
  return file;
}

// The expected digest of the app's image; absent when none is recorded.
Expected<std::optional<std::string>, AcquisitionError> expectedChecksum(const AppInfo& app) {
  const auto& manifest = BundledPackages::manifest();
  const auto entry = manifest.find(app.tempFileName);
  if (entry == manifest.end() || !entry->second.checksum) {
    logWarn("OfflinePackageProvider: No checksum entry for {} — integrity check skipped", app.tempFileName);
    return std::nullopt;
  }
  const PackageMeta& meta = entry->second;
  if (meta.hasUnsupportedChecksum()) {
    log("OfflinePackageProvider: {} records checksum algorithm '{}', which this engine cannot compute — refusing to install a payload it cannot verify",
        app.tempFileName, meta.checksumAlgorithm);
    return std::unexpected(ProviderError::unsupportedChecksum(meta.checksumAlgorithm));
  }
  log("OfflinePackageProvider: {} checksum available for {}", meta.checksumAlgorithm, app.tempFileName);
  return meta.checksum;
}

}  // namespace

void OfflinePackageProvider::acquirePackage(const AppInfo& app, const std::string& label,
                                            ProgressHandler progressHandler, Completion completion) {
  progressHandler(fmt::format("Preparing {}...", label), "", {});
  const auto file = locateImage(app);
  if (!file) return completion(handOn(file));
  progressHandler(fmt::format("Found {}", label), "", {.percent = 50});
  auto checksum = expectedChecksum(app);
  if (!checksum) return completion(handOn(checksum));
  completion(AcquiredPackage{
      .fileURL = *file, .checksum = *std::move(checksum), .skipGatekeeper = true, .version = std::nullopt});
}

void OfflinePackageProvider::cancelAcquisition() {
  log("OfflinePackageProvider: Cancel requested (no-op)");
}

}  // namespace installer
