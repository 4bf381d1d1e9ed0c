#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "MachO.h"
#include "MappedFile.h"
#include "RequirementText.h"
#include "SuperBlob.h"
#include "Verifier.h"

namespace lab {

namespace {

constexpr int kDeepestNesting = 16;

struct SignatureFile {
  std::uint32_t slot;
  const char* name;
};

// The signature's files of a bundle whose main executable can't contain one.
constexpr std::array<SignatureFile, 9> kSignatureFiles{{{kCodeDirectorySlot, "CodeDirectory"},
                                                        {kRequirementsSlot, "CodeRequirements"},
                                                        {kEntitlementsSlot, "CodeEntitlements"},
                                                        {kSignatureSlot, "CodeSignature"},
                                                        {kFirstAlternateSlot, "CodeRequirements-1"},
                                                        {kFirstAlternateSlot + 1, "CodeRequirements-2"},
                                                        {kFirstAlternateSlot + 2, "CodeRequirements-3"},
                                                        {kFirstAlternateSlot + 3, "CodeRequirements-4"},
                                                        {kFirstAlternateSlot + 4, "CodeRequirements-5"}}};

std::map<std::uint32_t, MappedFile> openSignatureFiles(const Bundle& bundle) {
  std::map<std::uint32_t, MappedFile> files;
  for (const auto& [slot, name] : kSignatureFiles) {
    auto file = MappedFile::open(bundle.signatureFolder / name);
    if (file) files.emplace(slot, std::move(*file));
  }
  return files;
}

// Seals of SHA-1 are accepted only when the code's own pages have nothing stronger either.
HashType weakestSealOf(const CodeReport& report) {
  const auto hasOnlySHA1 = [](const CodeFacts& slice) {
    return std::ranges::all_of(slice.hashTypes, [](HashType type) { return type == HashType::sha1; });
  };
  return std::ranges::all_of(report.slices, hasOnlySHA1) ? HashType::sha1 : HashType::sha256;
}

std::string describe(const Bundle& bundle) {
  if (bundle.shape == Bundle::Shape::versioned) return "framework bundle with ";
  return bundle.root.extension() == ".app" ? "app bundle with " : "bundle with ";
}

}  // namespace

Outcome<CodeReport> Verifier::bundle(const Bundle& bundle, const Task& task) const {
  const auto info = MappedFile::open(bundle.infoPlist);
  if (!info) return handOn(info);
  const auto seals = MappedFile::open(bundle.signatureFolder / "CodeResources");
  SignedSurroundings surroundings;
  surroundings.info = std::make_shared<const Json>(readPropertyList(info->bytes()).value_or(nullptr));
  surroundings.outside[kInfoPlistSlot] = info->bytes();
  surroundings.mustBeSealed = {kInfoPlistSlot, kResourcesSlot};
  if (seals) surroundings.outside[kResourcesSlot] = seals->bytes();
  auto report = bundleCode(bundle, surroundings, task);
  if (!report) return handOn(report);
  report->kind = CodeReport::Kind::bundle;
  report->format = describe(bundle) + report->format;
  report->executable = bundle.mainExecutable;
  if (task.thoroughness == Thoroughness::signatureOnly) return report;

  if (!seals) return refuse("the bundle's resource seal is missing");
  if (auto clean = bundle.checkSurroundings(); !clean) return handOn(clean);
  if (auto plain = checkSideband(bundle.mainExecutable); !plain) return handOn(plain);
  const auto resources = CodeResources::read(seals->bytes(), weakestSealOf(*report));
  if (!resources) return handOn(resources);
  const ResourceScope scope{&bundle, &*resources, task.around};
  const Task inside = task.inside(scope);
  const auto nested = [&](const std::filesystem::path& path, const ResourceSeal& seal) {
    return nestedCode(path, seal, inside);
  };
  if (auto sealed = checkResources(scope, nested); !sealed) return handOn(sealed);
  if (auto others = otherVersions(bundle, *report, inside); !others) return handOn(others);
  return report;
}

Outcome<CodeReport> Verifier::bundleCode(const Bundle& bundle, const SignedSurroundings& surroundings,
                                         const Task& task) const {
  const auto executable = MappedFile::open(bundle.mainExecutable);
  if (!executable) return handOn(executable);
  const ByteView bytes = executable->bytes();
  const auto files = openSignatureFiles(bundle);
  if (isMachO(bytes)) {
    if (!files.empty())
      return refuse("the bundle has signature files beside the signature in its main executable");
    return machO(bytes, surroundings, task);
  }
  if (!files.contains(kCodeDirectorySlot))
    return std::unexpected(Failure{"code object is not signed at all", FailureKind::notSigned});
  std::map<std::uint32_t, ByteView> blobs;
  for (const auto& [slot, file] : files) blobs[slot] = file.bytes();
  const auto parts = SignatureParts::fromBlobs(blobs);
  if (!parts) return handOn(parts);
  SignedSurroundings whole = surroundings;
  whole.code = bytes;
  whole.limit = bytes.size();
  auto facts = signature(*parts, whole, task);
  if (!facts) return handOn(facts);
  return CodeReport{CodeReport::Kind::bundle, "generic", {}, {std::move(*facts)}};
}

// Every version of a framework can be loaded by name, so each must be valid by itself and of the same team.
Outcome<void> Verifier::otherVersions(const Bundle& bundle, const CodeReport& current,
                                      const Task& task) const {
  for (const std::filesystem::path& path : bundle.otherVersions) {
    const auto where = "version " + printable(path.filename().string());
    if (task.depth > kDeepestNesting) return refuse("code is nested too deeply");
    const auto report = code(path, task);
    if (!report) return handOn(report, where);
    if (report->slices.front().team != current.slices.front().team)
      return refuse("{}: is signed by another team", where);
  }
  return {};
}

Outcome<void> Verifier::nestedCode(const std::filesystem::path& path, const ResourceSeal& seal,
                                   const Task& task) const {
  if (task.depth > kDeepestNesting) return refuse("code is nested too deeply");
  const auto report = code(path, task);
  if (!report) return handOn(report);
  Requirement requirement;
  requirement.kind = Requirement::Kind::cdhash;
  requirement.hash = seal.cdhash;
  if (!seal.requirement.empty()) {
    auto parsed = parseRequirement(seal.requirement);
    if (!parsed) return handOn(parsed, "the requirement in its seal can't be read");
    requirement = std::move(*parsed);
  }
  for (const CodeFacts& slice : report->slices) {
    const auto met = meets(requirement, slice.subject());
    if (!met) return handOn(met);
    if (!*met) return refuse("isn't the code that was sealed (it fails the requirement in its seal)");
  }
  return {};
}

}  // namespace lab
