#include "Utils/BundledPackages.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Base/JSONReader.h"
#include "Base/ProcessWide.h"
#include "Platform/FileSystem.h"
#include "Platform/Machine.h"
#include "Utils/Log.h"

namespace installer {

namespace {

using Manifest = std::map<std::string, PackageMeta>;

// The log line names "OfflinePackageProvider", which uses these packages. This is intended.
void logLoaded(const Manifest& manifest) {
  const auto count = [&manifest](auto&& holds) {
    return std::ranges::count_if(manifest, [&holds](const auto& entry) { return holds(entry.second); });
  };
  log("OfflinePackageProvider: Loaded {} package(s) from packages.json ({} with checksum, {} with version, {} with size)",
      manifest.size(), count([](const PackageMeta& meta) { return meta.checksumIsVerifiable(); }),
      count([](const PackageMeta& meta) { return meta.version.has_value(); }),
      count([](const PackageMeta& meta) { return meta.size.has_value(); }));
}

Manifest loadManifest() {
  const auto folder = BundledPackages::packagesFolder();
  if (!folder) return {};
  const auto bytes =
      readBoundedFile(machine().files, joined(*folder, "packages.json"), JSONReader::kMaximumBytes);
  if (!bytes) {
    logWarn("OfflinePackageProvider: packages.json not found or unreadable — skipping checksum verification");
    log("OfflinePackageProvider: " + bytes.error().localizedDescription);
    return {};
  }
  Manifest byDestination;
  for (auto& [key, meta] : PackageMeta::decodeIndex(*bytes)) {
    if (meta.destination) byDestination.emplace(*meta.destination, meta);
  }
  logLoaded(byDestination);
  if (const auto json = JSONReader::parse(*bytes); !json) {
    log("OfflinePackageProvider: packages.json: " + json.error().localizedDescription);
  }
  return byDestination;
}

const PackageMeta* entry(const AppInfo& app) {
  const auto& manifest = BundledPackages::manifest();
  const auto found = manifest.find(app.tempFileName);
  return found == manifest.end() ? nullptr : &found->second;
}

}  // namespace

std::optional<Path> BundledPackages::packagesFolder() {
  const auto resources = machine().bundles.mainResources();
  if (!resources) return std::nullopt;
  return joined(*resources, "packages");
}

bool BundledPackages::bundledPackagesAvailable() {
  const auto folder = packagesFolder();
  if (!folder) return false;
  const auto names = machine().files.contentsOfDirectory(*folder);
  return names && std::ranges::any_of(*names, [](const std::string& name) { return name.ends_with(".dmg"); });
}

const std::map<std::string, PackageMeta>& BundledPackages::manifest() {
  static ProcessWide<Manifest> instance{[] { return std::make_unique<Manifest>(loadManifest()); }};
  return instance.get();
}

std::optional<std::string> BundledPackages::bundledVersion(const AppInfo& app) {
  const auto* const meta = entry(app);
  return meta == nullptr ? std::nullopt : meta->version;
}

std::optional<std::int64_t> BundledPackages::bundledSize(const AppInfo& app) {
  const auto* const meta = entry(app);
  return meta == nullptr ? std::nullopt : meta->size;
}

}  // namespace installer
