#include <gtest/gtest.h>

#include "Models/PackageProvider.h"

namespace installer {
namespace {

const InstallerRetirement kGone{
    RetirementReason::sourceUnavailable, "https://www.kelo.example/download/", {}};

TEST(ProviderError, HasAStableCodeAndASentenceForEachCase) {
  const struct {
    ProviderError error;
    ErrorCode code;
    const char* description;
  } rows[] = {
      {ProviderError::versionCheckFailed("no route"), ErrorCode::networkUnavailable,
       "Failed to check for updates: no route"},
      {ProviderError::downloadFailed("HTTP 500"), ErrorCode::downloadFailed, "Download failed: HTTP 500"},
      {ProviderError::fileSaveFailed("disk full"), ErrorCode::fileSaveFailed,
       "Failed to save downloaded file: disk full"},
      {ProviderError::packageNotFound("Kelo Rulo"), ErrorCode::packageNotFound,
       "Package not found: Kelo Rulo"},
      {ProviderError::untrustedDownloadURL("evil.example"), ErrorCode::untrustedSource,
       "Download from 'evil.example' was blocked — domain not in trusted list"},
      {ProviderError::unsupportedChecksum("md5"), ErrorCode::verifyFailed,
       "Package metadata uses an unsupported checksum algorithm 'md5' — the download cannot be verified"},
      {ProviderError::sourceRetired(kGone), ErrorCode::sourceUnavailable,
       "This installer's download location is no longer available — download a current installer"},
      {ProviderError::invalidResponse(), ErrorCode::metadataInvalid, "Invalid package metadata response"},
      {ProviderError::invalidVersionFormat(), ErrorCode::metadataInvalid, "Invalid package metadata format"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.error.code(), row.code);
    EXPECT_EQ(row.error.errorDescription(), row.description);
  }
}

TEST(ProviderError, CarriesTheRetirementOfARetiredSourceOnly) {
  EXPECT_EQ(ProviderError::sourceRetired(kGone).retirement(), kGone);
  EXPECT_EQ(ProviderError::downloadFailed("x").retirement(), std::nullopt);
}

TEST(AcquisitionError, SpeaksForItsProviderError) {
  const AcquisitionError error = ProviderError::sourceRetired(kGone);
  EXPECT_EQ(code(error), ErrorCode::sourceUnavailable);
  EXPECT_EQ(errorDescription(error), ProviderError::sourceRetired(kGone).errorDescription());
  ASSERT_NE(retirement(error), nullptr);
  EXPECT_EQ(*retirement(error), kGone);
}

TEST(AcquisitionError, OfAnotherKindHasNoCode) {
  const AcquisitionError error = Error{"NSCocoaErrorDomain", 4, "The file doesn't exist.", nullptr};
  EXPECT_EQ(code(error), std::nullopt);
  EXPECT_EQ(errorDescription(error), "The file doesn't exist.");
  EXPECT_EQ(retirement(error), nullptr);
}

}  // namespace
}  // namespace installer
