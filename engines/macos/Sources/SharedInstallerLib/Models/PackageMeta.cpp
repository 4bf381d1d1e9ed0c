#include "Models/PackageMeta.h"

#include "Models/JSONReader.h"
#include "Models/Text.h"

namespace installer {

namespace {

// A wrong type and an empty string both count as absent.
std::optional<std::string> tolerantString(const Json& object, std::string_view key) {
  auto text = JSONReader::string(object, key);
  if (text && text->empty()) return std::nullopt;
  return text;
}

std::optional<std::int64_t> positiveSize(const Json& object) {
  const auto size = JSONReader::integer(object, "size");
  if (size && *size < 1) return std::nullopt;
  return size;
}

PackageMeta decodeObject(const Json& object) {
  PackageMeta meta;
  meta.product = tolerantString(object, "product");
  meta.version = tolerantString(object, "version");
  meta.destination = tolerantString(object, "destination");
  meta.size = positiveSize(object);
  meta.checksum = tolerantString(object, "checksum");
  if (!meta.checksum) meta.checksum = tolerantString(object, "sha256");  // the key's older name
  if (auto algorithm = tolerantString(object, "checksumAlgorithm")) meta.checksumAlgorithm = *algorithm;
  if (const auto alternate = tolerantString(object, "alternateDownloadUrl")) {
    meta.alternateDownloadURL = URL::parse(*alternate);
  }
  meta.flavour = tolerantString(object, "flavour");
  meta.os = tolerantString(object, "os");
  meta.arch = tolerantString(object, "arch");
  meta.format = tolerantString(object, "format");
  meta.release = tolerantString(object, "release");
  meta.mode = tolerantString(object, "mode");
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
