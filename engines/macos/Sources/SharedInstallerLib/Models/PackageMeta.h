// What is known of one package: the content of a `meta.json`, and of one entry of `packages.json`.
// Read with tolerance: one bad value costs that value and nothing else. Nothing here logs.
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

  // No string here is ever empty when it is present.
  std::optional<std::string> product;
  std::optional<std::string> version;
  std::optional<std::string> destination;  // the package's file name, as written: may hold anything
  std::optional<std::int64_t> size;        // bytes, above zero
  std::optional<std::string> checksum;     // hexadecimal by promise only
  std::string checksumAlgorithm{supportedChecksumAlgorithm};  // in the file's own case
  std::optional<URL> alternateDownloadURL;                    // a second place of the same file

  // Carried only; nothing decides by them.
  std::optional<std::string> flavour;
  std::optional<std::string> os;
  std::optional<std::string> arch;
  std::optional<std::string> format;
  std::optional<std::string> release;
  std::optional<std::string> mode;

  // Both false for a record without a checksum. Neither looks at the digest's length or alphabet.
  bool checksumIsVerifiable() const;
  bool hasUnsupportedChecksum() const;

  // Absent when the bytes aren't JSON or the top level isn't an object.
  static std::optional<PackageMeta> decode(std::string_view bytes);

  // Entries that can't be decoded are left out; empty when the whole can't be.
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
