// A package as the content delivery network describes it.
#pragma once

#include <optional>

#include "Base/URL.h"
#include "Models/PackageMeta.h"

namespace installer {

struct CDNPackage {
  URL folderURL;  // the folder that held `meta.json`; the package lies beside it
  PackageMeta meta;

  // Absent when the metadata names no destination.
  std::optional<URL> downloadURL() const {
    if (!meta.destination) return std::nullopt;
    return folderURL.appendingPathComponent(*meta.destination);
  }
  std::optional<URL> alternateDownloadURL() const { return meta.alternateDownloadURL; }
};

}  // namespace installer
