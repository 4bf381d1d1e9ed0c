// Reads the metadata and determines the package to fetch.
#include <fmt/format.h>

#include "Installer/OnlineAcquisition.h"
#include "Utils/CDNSource.h"
#include "Utils/InstallerConfig.h"
#include "Utils/InstallerLifecycle.h"
#include "Utils/Log.h"

namespace installer {

namespace {

// The refused host, from the configured base address.
std::string hostOfBase() {
  const auto base = InstallerConfig::cdnBaseURL();
  const auto url = URL::parse(base);
  return url && url->host() ? *url->host() : base;
}

ProviderError unreachable(const AppInfo& app) {
  return ProviderError::versionCheckFailed("could not reach the package metadata for " + app.displayName);
}

}  // namespace

void OnlineAcquisition::resolvePackage() {
  report(fmt::format("Checking for updates - {}...", label_));
  const auto package = CDNSource::fetchPackage(app_, CDNSource::kFetchTimeout);
  if (!package) {
    resolveFailed(package.error());
    return;
  }
  judgePackage(*package);
}

void OnlineAcquisition::resolveFailed(CDNFetchError error) {
  switch (error) {
    case CDNFetchError::notFound:
      logWarn("OnlinePackageProvider: no package metadata for {} in this tree", app_.displayName);
      if (auto retirement = InstallerLifecycle::confirmSourceRetired()) {
        fail(ProviderError::sourceRetired(std::move(*retirement)));
        return;
      }
      fail(unreachable(app_));
      return;
    case CDNFetchError::transient:
      logError("OnlinePackageProvider: could not fetch package metadata for {}", app_.displayName);
      fail(unreachable(app_));
      return;
    case CDNFetchError::untrusted:
      logError("OnlinePackageProvider: package metadata for {} was refused as untrusted", app_.displayName);
      fail(ProviderError::untrustedDownloadURL(hostOfBase()));
      return;
  }
}

void OnlineAcquisition::judgePackage(const CDNPackage& package) {
  const auto& meta = package.meta;
  const auto url = package.downloadURL();
  if (!url) {
    logError("OnlinePackageProvider: meta.json for {} has no 'destination'", app_.displayName);
    fail(ProviderError::invalidResponse());
    return;
  }
  if (!meta.checksumIsVerifiable()) {
    log("OnlinePackageProvider: {} meta.json checksum is unusable (algorithm '{}', checksum {}) — refusing to install unverified bytes",
        app_.displayName, meta.checksumAlgorithm, meta.checksum ? "present" : "absent");
    fail(ProviderError::unsupportedChecksum(meta.checksumAlgorithm));
    return;
  }
  const auto version = meta.version.value_or("");
  alternateDownloadURL_ = package.alternateDownloadURL();
  log("OnlinePackageProvider: {} v{} ({} bytes) from {}", app_.displayName, version,
      meta.size ? std::to_string(*meta.size) : "unknown", url->absoluteString());
  startTrustedDownload({.version = version, .downloadURL = *url, .checksum = *meta.checksum});
}

}  // namespace installer
