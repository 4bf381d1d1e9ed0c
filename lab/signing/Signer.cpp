#include "Signer.h"

#include <array>
#include <nlohmann/json.hpp>

#include "Base/POSIX/WholeFile.h"
#include "ImageTrailer.h"
#include "MachO.h"
#include "MachOWriter.h"
#include "MappedFile.h"
#include "PropertyList.h"
#include "ResourceSealer.h"
#include "SignatureWriter.h"
#include "SuperBlob.h"

namespace lab {

namespace {

namespace fs = std::filesystem;

std::unexpected<Failure> cantWrite(const fs::path& path) {
  return std::unexpected(Failure{"can't write " + path.string(), FailureKind::unreadable});
}

// Options for nested code, which has its own identifier and entitlements.
SigningOptions forNested(SigningOptions options) {
  options.identifier.clear();
  options.entitlements.clear();
  return options;
}

}  // namespace

Outcome<void> replaceFile(const fs::path& path, ByteView content) {
  if (installer::replaceFile(path.string(), {reinterpret_cast<const char*>(content.data()), content.size()}))
    return {};
  return cantWrite(path);
}

Outcome<void> Signer::sign(const fs::path& path) const {
  std::error_code error;
  const fs::path real = fs::canonical(path, error);
  if (error) return std::unexpected(Failure{path.string() + ": " + error.message(), FailureKind::unreadable});
  if (!fs::is_directory(real)) return file(real);
  const auto found = Bundle::read(real);
  return found ? bundle(*found) : handOn(found, path.string());
}

Outcome<void> Signer::file(const fs::path& path) const {
  Outcome<Bytes> result;
  {
    const auto mapped = MappedFile::open(path);
    if (!mapped) return handOn(mapped);
    const ByteView bytes = mapped->bytes();
    const std::string identifier = options_.identifier.empty() ? path.stem().string() : options_.identifier;
    if (isMachO(bytes)) {
      result = machO(bytes, identifier, {});
    } else if (isUDIF(bytes)) {
      result = diskImage(bytes, identifier);
    } else {
      return refuse("{} is neither Mach-O file, bundle nor disk image", path.string());
    }
  }
  return result ? replaceFile(path, *result) : handOn(result, path.string());
}

Outcome<Bytes> Signer::machO(ByteView bytes, const std::string& identifier,
                             const std::map<std::uint32_t, ByteView>& outside) const {
  const auto slices = readMachO(bytes);
  if (!slices) return handOn(slices);
  const bool isThin = slices->size() == 1 && slices->front().bytes.size() == bytes.size();
  if (isThin) return slice(bytes, identifier, outside);
  std::vector<Bytes> signedSlices;
  for (const MachOSlice& one : *slices) {
    auto result = slice(one.bytes, identifier, outside);
    if (!result) return handOn(result);
    signedSlices.push_back(std::move(*result));
  }
  return makeUniversal(signedSlices);
}

Outcome<Bytes> Signer::slice(ByteView bytes, const std::string& identifier,
                             const std::map<std::uint32_t, ByteView>& outside) const {
  const auto offset = signatureOffsetFor(bytes);
  if (!offset) return handOn(offset);
  SigningSubject subject{identifier, bytes, 12, outside, 0, le32(bytes, 12) == 2U};
  const auto read = readMachO(bytes);
  if (read && !outside.contains(kInfoPlistSlot) && read->front().infoPlist)
    subject.outside[kInfoPlistSlot] = *read->front().infoPlist;
  subject.execSegmentLimit = static_cast<std::uint32_t>(textSegmentSize(bytes));
  // The load command has the signature's length, and the signature covers the load command, so the size is
  // fixed before signing.
  const std::uint64_t room = (largestSignature(subject, options_) + 15) / 16 * 16;
  auto prepared = prepareForSignature(bytes, room);
  if (!prepared) return handOn(prepared);
  subject.code = *prepared;
  const auto blobs = makeSignature(subject, identity_, options_);
  if (!blobs) return handOn(blobs);
  const Bytes signature = superBlobOf(*blobs);
  if (signature.size() > room) return refuse("the signature is larger than the space reserved for it");
  const std::size_t end = prepared->size() + static_cast<std::size_t>(room);
  prepared->insert(prepared->end(), signature.begin(), signature.end());
  prepared->resize(end);
  return prepared;
}

Outcome<Bytes> Signer::diskImage(ByteView bytes, const std::string& identifier) const {
  const auto trailer = readImageTrailer(bytes);
  if (!trailer) return handOn(trailer);
  const std::uint64_t end = trailer->plistOffset + trailer->plistLength;
  const std::uint64_t contentEnd =
      trailer->isSigned() ? trailer->signatureOffset : bytes.size() - UDIFTrailer::kSize;
  if (end != contentEnd) return refuse("the image's property list isn't directly before its trailer");
  Bytes newTrailer = trailer->stored;
  storeBig<std::uint64_t>(newTrailer.data() + UDIFTrailer::kSignatureOffsetAt, end);
  storeBig<std::uint64_t>(newTrailer.data() + UDIFTrailer::kSignatureLengthAt, 0);
  const SigningSubject subject{identifier, bytes.first(static_cast<std::size_t>(end)),
                               0,          {{kRepresentationSlot, newTrailer}},
                               0,          false};
  const auto blobs = makeSignature(subject, identity_, options_);
  if (!blobs) return handOn(blobs);
  const Bytes signature = superBlobOf(*blobs);
  storeBig<std::uint64_t>(newTrailer.data() + UDIFTrailer::kSignatureLengthAt, signature.size());
  Bytes result = copyOf(subject.code);
  result.insert(result.end(), signature.begin(), signature.end());
  result.insert(result.end(), newTrailer.begin(), newTrailer.end());
  return result;
}

Outcome<void> Signer::bundle(const Bundle& bundle) const {
  if (!options_.keepNested) {
    const auto nested = findNestedCode(bundle);
    if (!nested) return handOn(nested);
    const Signer inner(identity_, forNested(options_));
    for (const fs::path& path : *nested) {
      if (auto done = inner.sign(path); !done) return handOn(done);
    }
  }
  std::error_code error;
  fs::remove_all(bundle.signatureFolder, error);
  fs::create_directories(bundle.signatureFolder, error);
  if (error) return cantWrite(bundle.signatureFolder);
  const bool isOld = options_.digests == std::vector{HashType::sha1};
  const auto resources = makeCodeResources(bundle, isOld ? HashType::sha1 : HashType::sha256);
  if (!resources) return handOn(resources);
  if (auto written = replaceFile(bundle.signatureFolder / "CodeResources", viewOf(*resources)); !written)
    return written;
  return bundleExecutable(bundle, *resources);
}

Outcome<void> Signer::bundleExecutable(const Bundle& bundle, const std::string& resources) const {
  const auto info = MappedFile::open(bundle.infoPlist);
  if (!info) return handOn(info);
  const auto executable = MappedFile::open(bundle.mainExecutable);
  if (!executable) return handOn(executable);
  const auto list = readPropertyList(info->bytes());
  std::string identifier = options_.identifier;
  if (identifier.empty() && list)
    identifier = installer::JSONReader::string(*list, "CFBundleIdentifier").value_or("");
  if (identifier.empty()) identifier = bundle.root.stem().string();
  const std::map<std::uint32_t, ByteView> outside{{kInfoPlistSlot, info->bytes()},
                                                  {kResourcesSlot, viewOf(resources)}};
  if (!isMachO(executable->bytes())) return detached(bundle, executable->bytes(), identifier, outside);
  const auto result = machO(executable->bytes(), identifier, outside);
  return result ? replaceFile(bundle.mainExecutable, *result) : handOn(result, bundle.root.string());
}

Outcome<void> Signer::detached(const Bundle& bundle, ByteView code, const std::string& identifier,
                               const std::map<std::uint32_t, ByteView>& outside) const {
  const auto blobs = makeSignature({identifier, code, 12, outside, 0, false}, identity_, options_);
  if (!blobs) return handOn(blobs);
  for (const auto& [slot, blob] : *blobs) {
    std::string name;
    if (slot == kCodeDirectorySlot) name = "CodeDirectory";
    if (slot == kRequirementsSlot) name = "CodeRequirements";
    if (slot == kEntitlementsSlot) name = "CodeEntitlements";
    if (slot == kSignatureSlot) name = "CodeSignature";
    if (slot >= kFirstAlternateSlot && slot <= kLastAlternateSlot)
      name = fmt::format("CodeRequirements-{}", slot - kFirstAlternateSlot + 1);
    if (auto written = replaceFile(bundle.signatureFolder / name, blob); !written) return handOn(written);
  }
  return {};
}

}  // namespace lab
