#include "Verifier.h"

#include <array>

#include "ImageTrailer.h"
#include "MachO.h"
#include "MappedFile.h"
#include "SuperBlob.h"
#include "support/Attributes.h"

namespace lab {

namespace {

std::unexpected<Failure> notSigned() {
  return std::unexpected(Failure{"code object is not signed at all", FailureKind::notSigned});
}

std::string describe(const std::vector<MachOSlice>& slices) {
  std::string names;
  for (const MachOSlice& slice : slices) names += (names.empty() ? "" : " ") + architectureName(slice);
  return fmt::format("Mach-O {} ({})", slices.size() > 1 ? "universal" : "thin", names);
}

// Slices of different teams aren't one program.
Outcome<void> checkOneSigner(const std::vector<CodeFacts>& slices) {
  for (const CodeFacts& slice : slices) {
    if (slice.team != slices.front().team || slice.isAdHoc() != slices.front().isAdHoc()) {
      return refuse("the slices are signed by different teams");
    }
  }
  return {};
}

}  // namespace

Outcome<CodeReport> Verifier::verify(const std::filesystem::path& path) const {
  return code(path, {Thoroughness::everything, 0, nullptr});
}

Outcome<CodeReport> Verifier::inspect(const std::filesystem::path& path) const {
  return code(path, {Thoroughness::signatureOnly, 0, nullptr});
}

Outcome<CodeReport> Verifier::code(const std::filesystem::path& path, const Task& task) const {
  std::error_code error;
  const std::filesystem::path real = std::filesystem::canonical(path, error);
  if (error) return std::unexpected(Failure{error.message(), FailureKind::unreadable});
  if (std::filesystem::is_directory(real, error)) {
    const auto found = Bundle::read(real);
    return found ? bundle(*found, task) : handOn(found);
  }
  if (const auto found = bundleOfMainExecutable(real); found && task.depth == 0) return bundle(*found, task);
  return file(real, task);
}

Outcome<CodeReport> Verifier::file(const std::filesystem::path& path, const Task& task) const {
  const auto mapped = MappedFile::open(path);
  if (!mapped) return handOn(mapped);
  const ByteView bytes = mapped->bytes();
  const bool reads = task.thoroughness == Thoroughness::signatureOnly;
  if (auto plain = checkSideband(path); !plain && !reads) return handOn(plain);
  Outcome<CodeReport> report;
  if (isMachO(bytes)) {
    report = machO(bytes, {}, task);
  } else if (isUDIF(bytes)) {
    report = diskImage(bytes, task);
  } else {
    report = plainFile(path, bytes, task);
  }
  if (report) report->executable = path;
  return report;
}

Outcome<CodeReport> Verifier::machO(ByteView bytes, const SignedSurroundings& bundled,
                                    const Task& task) const {
  const auto slices = readMachO(bytes);
  if (!slices) return handOn(slices);
  CodeReport report{CodeReport::Kind::machO, describe(*slices), {}, {}};
  for (const MachOSlice& slice : *slices) {
    if (!slice.signature) return notSigned();
    const auto where = "in architecture " + architectureName(slice);
    const auto parts = SignatureParts::fromSuperBlob(*slice.signature);
    if (!parts) return handOn(parts, where);
    SignedSurroundings surroundings = bundled;
    surroundings.code = slice.bytes;
    surroundings.limit = slice.signatureOffset;
    const bool isBundled = bundled.mustBeSealed.contains(kInfoPlistSlot);
    if (!isBundled && slice.infoPlist) surroundings.outside[kInfoPlistSlot] = *slice.infoPlist;
    auto facts = signature(*parts, surroundings, task);
    if (!facts) return handOn(facts, where);
    facts->architecture = architectureName(slice);
    report.slices.push_back(std::move(*facts));
  }
  if (auto one = checkOneSigner(report.slices); !one) return handOn(one);
  return report;
}

Outcome<CodeReport> Verifier::diskImage(ByteView bytes, const Task& task) const {
  const auto trailer = readImageTrailer(bytes);
  if (!trailer) return handOn(trailer);
  if (!trailer->isSigned()) return notSigned();
  const auto parts =
      SignatureParts::fromSuperBlob(*slice(bytes, trailer->signatureOffset, trailer->signatureLength));
  if (!parts) return handOn(parts);
  const Bytes sealed = trailer->sealedBytes();
  const SignedSurroundings surroundings{
      bytes, trailer->signatureOffset, {{kRepresentationSlot, sealed}}, {kRepresentationSlot}};
  auto facts = signature(*parts, surroundings, task);
  if (!facts) return handOn(facts);
  return CodeReport{CodeReport::Kind::diskImage, "disk image", {}, {std::move(*facts)}};
}

Outcome<CodeReport> Verifier::plainFile(const std::filesystem::path& path, ByteView bytes,
                                        const Task& task) const {
  struct Attribute {
    std::uint32_t slot;
    const char* name;
  };
  static constexpr std::array<Attribute, 9> kAttributes{
      {{kCodeDirectorySlot, "com.apple.cs.CodeDirectory"},
       {kRequirementsSlot, "com.apple.cs.CodeRequirements"},
       {kEntitlementsSlot, "com.apple.cs.CodeEntitlements"},
       {kSignatureSlot, "com.apple.cs.CodeSignature"},
       {kFirstAlternateSlot, "com.apple.cs.CodeRequirements-1"},
       {kFirstAlternateSlot + 1, "com.apple.cs.CodeRequirements-2"},
       {kFirstAlternateSlot + 2, "com.apple.cs.CodeRequirements-3"},
       {kFirstAlternateSlot + 3, "com.apple.cs.CodeRequirements-4"},
       {kFirstAlternateSlot + 4, "com.apple.cs.CodeRequirements-5"}}};
  std::map<std::uint32_t, Bytes> values;
  for (const auto& [slot, name] : kAttributes) {
    if (const auto value = attribute(path, name).value_or(std::nullopt))
      values[slot] = copyOf(viewOf(*value));
  }
  if (!values.contains(kCodeDirectorySlot)) return notSigned();
  std::map<std::uint32_t, ByteView> blobs(values.begin(), values.end());
  const auto parts = SignatureParts::fromBlobs(blobs);
  if (!parts) return handOn(parts);
  auto facts = signature(*parts, {bytes, bytes.size(), {}, {}}, task);
  if (!facts) return handOn(facts);
  return CodeReport{CodeReport::Kind::plainFile, "generic", {}, {std::move(*facts)}};
}

Outcome<CodeFacts> Verifier::signature(const SignatureParts& parts, const SignedSurroundings& surroundings,
                                       const Task& task) const {
  auto facts = readFacts(parts, surroundings);
  if (!facts) return handOn(facts);
  const auto proven = proveSigner(parts, anchors_, now_, *facts);
  if (!proven) facts->trustProblem = proven.error().reason;
  if (task.thoroughness == Thoroughness::signatureOnly) return facts;
  if (!proven) return handOn(proven);
  if (auto sealed = checkSeals(parts, surroundings); !sealed) return handOn(sealed);
  return facts;
}

}  // namespace lab
