#include "Assessment.h"

namespace lab {

namespace {

constexpr const char* kDeveloperIDIntermediate = "1.2.840.113635.100.6.2.6";
constexpr const char* kDeveloperIDLeaf = "1.2.840.113635.100.6.1.13";

bool isDeveloperID(const CertificateChain& chain) {
  return chain.certificates.size() >= 3 && chain.certificates[1].hasExtension(kDeveloperIDIntermediate) &&
         chain.leaf().hasExtension(kDeveloperIDLeaf);
}

Assessment rejected(std::string source, std::string origin = {}) {
  return {false, std::move(source), std::move(origin)};
}

}  // namespace

Assessment assess(const Verifier& verifier, const std::filesystem::path& path) {
  const auto report = verifier.verify(path);
  if (!report) {
    const bool isUnsigned = report.error().kind == FailureKind::notSigned;
    return rejected(isUnsigned ? "no usable signature" : report.error().reason);
  }
  if (report->kind != CodeReport::Kind::diskImage) return rejected("not a disk image");
  const CodeFacts& facts = report->slices.front();
  if (!facts.chain) return rejected("no usable signature (ad hoc)");
  const std::string origin = facts.chain->leaf().displayName();
  if (!isDeveloperID(*facts.chain)) return rejected("not a Developer ID signature", origin);
  if (!facts.timestamp) return rejected("Developer ID without a secure timestamp", origin);
  std::string source = "Developer ID";
  if (facts.isVouchedForByTestAuthority()) {
    source += " of the test authority \"" + facts.chain->root().displayName() +
              "\" named by linux_host.json, not the platform's";
  }
  return {true, source, origin};
}

}  // namespace lab
