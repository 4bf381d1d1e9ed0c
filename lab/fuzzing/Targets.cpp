#include "Targets.h"

#include <nlohmann/json.hpp>

#include "CodeResources.h"
#include "ImageTrailer.h"
#include "MachO.h"
#include "RequirementBlob.h"
#include "RequirementText.h"
#include "SignedData.h"
#include "SuperBlob.h"
#include "Timestamp.h"

namespace lab {

namespace {

// A fixed time, so that an input always takes the same code path.
constexpr std::chrono::sys_seconds kNow{std::chrono::seconds(1780000000)};

bool trySignature(const SignatureParts& parts, const SignedSurroundings& surroundings,
                  const Anchors& anchors) {
  auto facts = readFacts(parts, surroundings);
  if (!facts) return false;
  const bool isProven = proveSigner(parts, anchors, kNow, *facts).has_value();
  const bool isSealed = checkSeals(parts, surroundings).has_value();
  if (facts->designated) (void)meets(*facts->designated, facts->subject());
  (void)facts->cdhash();
  return isProven && isSealed;
}

}  // namespace

bool tryMachO(ByteView input, const Anchors& anchors) {
  const auto slices = readMachO(input);
  if (!slices) return false;
  bool isValid = isMachO(input);
  for (const MachOSlice& slice : *slices) {
    const auto parts = slice.signature ? SignatureParts::fromSuperBlob(*slice.signature) : refuse("");
    SignedSurroundings surroundings{slice.bytes, slice.signatureOffset, {}, {}};
    if (slice.infoPlist) surroundings.outside[kInfoPlistSlot] = *slice.infoPlist;
    isValid = parts && trySignature(*parts, surroundings, anchors) && isValid;
  }
  return isValid;
}

bool tryDiskImage(ByteView input, const Anchors& anchors) {
  const auto trailer = readImageTrailer(input);
  if (!trailer || !trailer->isSigned()) return false;
  const auto parts =
      SignatureParts::fromSuperBlob(*slice(input, trailer->signatureOffset, trailer->signatureLength));
  if (!parts) return false;
  const Bytes sealed = trailer->sealedBytes();
  return trySignature(
      *parts, {input, trailer->signatureOffset, {{kRepresentationSlot, sealed}}, {kRepresentationSlot}},
      anchors);
}

void trySuperBlob(ByteView input) {
  const auto parts = SignatureParts::fromSuperBlob(input);
  if (parts) (void)trySignature(*parts, {input, input.size(), {}, {}}, Anchors::platform());
}

void tryCMS(ByteView input, const Anchors& anchors) {
  const auto data = readSignedData(input);
  if (!data) return;
  (void)checkSignature(*data, {}, kDataType);
  (void)readTimestamp(*data, anchors, kNow);
  (void)buildChain({*data->signer, data->certificates, kNow}, anchors);
}

void tryCodeResources(ByteView input) {
  const auto resources = CodeResources::read(input);
  if (!resources) return;
  for (const char* path :
       {"Info.plist", "Resources/en.lproj/Main.strings", "MacOS/helper", "Frameworks/A.framework"}) {
    (void)resources->ruleFor(path);
  }
}

void tryPropertyList(ByteView input) {
  (void)readPropertyList(input);
}

void tryRequirementText(ByteView input) {
  const auto requirement = parseRequirement(textOf(input));
  if (!requirement) return;
  (void)meets(*requirement, {});
  (void)readRequirementBlob(writeRequirementBlob(*requirement));
}

void tryRequirementBlob(ByteView input) {
  const auto requirement = readRequirementBlob(input);
  if (requirement) (void)meets(*requirement, {});
  (void)findRequirement(input, kDesignatedType);
}

}  // namespace lab
