// The metadata of one package: the content of a `meta.json`, and of one entry of `packages.json`.
// Reading is tolerant: a bad value counts as absent and the other values are kept. Nothing here logs.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "Base/URL.h"

namespace installer {

struct PackageMeta {
  // The one digest that this engine can compute.
  static constexpr std::string_view supportedChecksumAlgorithm = "sha256";

  // A string that is present isn't empty.
  std::optional<std::string> product;
  std::optional<std::string> version;
  std::optional<std::string> destination;  // the package's file name as written; not checked
  std::optional<std::int64_t> size;        // bytes, above zero
  std::optional<std::string> checksum;     // should be hexadecimal; not checked
  std::string checksumAlgorithm{supportedChecksumAlgorithm};  // in the file's own case
  std::optional<URL> alternateDownloadURL;                    // a second address of the same file

  // Not used by the engine.
  std::optional<std::string> flavour;
  std::optional<std::string> os;
  std::optional<std::string> arch;
  std::optional<std::string> format;
  std::optional<std::string> release;
  std::optional<std::string> mode;

  // Both are false for a record without a checksum. Neither checks the digest's length or alphabet.
  bool checksumIsVerifiable() const;
  bool hasUnsupportedChecksum() const;

  // Absent when the bytes aren't JSON or the top level isn't an object.
  static std::optional<PackageMeta> decode(std::string_view bytes);

  // Entries that can't be decoded are left out; the map is empty when the whole text can't be decoded.
  static std::map<std::string, PackageMeta> decodeIndex(std::string_view bytes);

  friend bool operator==(const PackageMeta&, const PackageMeta&) = default;
};

// A package that is about to be fetched.
struct VersionInfo {
  std::string version;  // empty when the metadata names none
  URL downloadURL;
  std::string checksum;  // always one that can be verified
};

}  // namespace installer
