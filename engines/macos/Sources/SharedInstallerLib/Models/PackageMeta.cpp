#include "Models/PackageMeta.h"

#include <nlohmann/json.hpp>

#include "Base/JSONReader.h"
#include "Base/Text.h"

namespace installer {

namespace {

using JSONReader::nonEmptyString;

std::optional<std::int64_t> positiveSize(const Json& object) {
  const auto size = JSONReader::integer(object, "size");
  if (size && *size < 1) return std::nullopt;
  return size;
}

PackageMeta decodeObject(const Json& object) {
  PackageMeta meta;
  meta.product = nonEmptyString(object, "product");
  meta.version = nonEmptyString(object, "version");
  meta.destination = nonEmptyString(object, "destination");
  meta.size = positiveSize(object);
  meta.checksum = nonEmptyString(object, "checksum");
  if (!meta.checksum) meta.checksum = nonEmptyString(object, "sha256");  // the key's older name
  if (auto algorithm = nonEmptyString(object, "checksumAlgorithm")) meta.checksumAlgorithm = *algorithm;
  if (const auto alternate = nonEmptyString(object, "alternateDownloadUrl")) {
    meta.alternateDownloadURL = URL::parse(*alternate);
  }
  meta.flavour = nonEmptyString(object, "flavour");
  meta.os = nonEmptyString(object, "os");
  meta.arch = nonEmptyString(object, "arch");
  meta.format = nonEmptyString(object, "format");
  meta.release = nonEmptyString(object, "release");
  meta.mode = nonEmptyString(object, "mode");
  return meta;
}

bool isSupported(std::string_view algorithm) {
  return lowercased(algorithm) == PackageMeta::supportedChecksumAlgorithm;
}

}  // namespace

bool PackageMeta::checksumIsVerifiable() const {
  return checksum && !checksum->empty() && isSupported(checksumAlgorithm);
}

bool PackageMeta::hasUnsupportedChecksum() const {
  return checksum && !checksum->empty() && !isSupported(checksumAlgorithm);
}

std::optional<PackageMeta> PackageMeta::decode(std::string_view bytes) {
  const auto json = JSONReader::parse(bytes);
  if (!json || !json->is_object()) return std::nullopt;
  return decodeObject(*json);
}

std::map<std::string, PackageMeta> PackageMeta::decodeIndex(std::string_view bytes) {
  std::map<std::string, PackageMeta> index;
  const auto json = JSONReader::parse(bytes);
  if (!json || !json->is_object()) return index;
  for (const auto& [key, entry] : json->items()) {
    if (entry.is_object()) index.emplace(key, decodeObject(entry));
  }
  return index;
}

}  // namespace installer
