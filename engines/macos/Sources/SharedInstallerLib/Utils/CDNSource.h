// The only reader of metadata on the content delivery network. It downloads no packages.
//
// Any thread but a session's own: every fetch blocks its caller for at most `timeout`, and one lookup makes
// at most two fetches. The main thread may call this only while nothing needs its queue. Several threads may
// fetch at once. Nothing here throws; every failure is logged and has one of three kinds.
#pragma once

#include <optional>
#include <string_view>

#include "Base/Error.h"
#include "Base/URL.h"
#include "Models/PackageMeta.h"
#include "Platform/Dispatch.h"

namespace installer {

// Why a file of the content delivery network couldn't be read. The three kinds have different consequences.
enum class CDNFetchError {
  notFound,   // the server has no such file or its name doesn't resolve; the tree may be gone
  transient,  // the attempt failed and may work later; a network problem
  untrusted   // the address, a redirect or the final host isn't in `trustedDownloadDomains`
};

// A package as the content delivery network describes it.
struct CDNPackage {
  URL folderURL;  // the folder of `meta.json` and of the package
  PackageMeta meta;

  // Absent when the metadata names no destination.
  std::optional<URL> downloadURL() const {
    if (!meta.destination) return std::nullopt;
    return folderURL.appendingPathComponent(*meta.destination);
  }
  std::optional<URL> alternateDownloadURL() const { return meta.alternateDownloadURL; }
};

struct AppInfo;
struct ReleaseNotes;

namespace CDNSource {

// The time limit of every caller.
inline constexpr Duration kFetchTimeout{15.0};

// The app's folder under one arch segment ("arm64", "x64" or "universal"). Absent when the configured base
// isn't a URL.
std::optional<URL> folderURL(const AppInfo& app, std::string_view archSegment);

// Tries the segment that the catalog declares and, only if the file isn't found, the other one. The failure
// is always that of the declared segment.
Expected<CDNPackage, CDNFetchError> fetchPackage(const AppInfo& app, Duration timeout);

// Newest first; entries that compare the same keep their order. Absent when there are none or when they can't
// be fetched; absent without a request when the build doesn't show release notes.
std::optional<ReleaseNotes> fetchReleaseNotes(const AppInfo& app, Duration timeout);

}  // namespace CDNSource

}  // namespace installer
