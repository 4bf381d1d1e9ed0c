#include "Models/PackageProvider.h"

#include <fmt/format.h>
#include <utility>

namespace installer {

ProviderError ProviderError::versionCheckFailed(std::string reason) {
  return ProviderError{Case::versionCheckFailed, std::move(reason)};
}

ProviderError ProviderError::downloadFailed(std::string reason) {
  return ProviderError{Case::downloadFailed, std::move(reason)};
}

ProviderError ProviderError::fileSaveFailed(std::string reason) {
  return ProviderError{Case::fileSaveFailed, std::move(reason)};
}

ProviderError ProviderError::packageNotFound(std::string name) {
  return ProviderError{Case::packageNotFound, std::move(name)};
}

ProviderError ProviderError::untrustedDownloadURL(std::string host) {
  return ProviderError{Case::untrustedDownloadURL, std::move(host)};
}

ProviderError ProviderError::unsupportedChecksum(std::string algorithm) {
  return ProviderError{Case::unsupportedChecksum, std::move(algorithm)};
}

ProviderError ProviderError::sourceRetired(InstallerRetirement retirement) {
  ProviderError error{Case::sourceRetired};
  error.retirement_ = std::move(retirement);
  return error;
}

ProviderError ProviderError::invalidResponse() {
  return ProviderError{Case::invalidResponse};
}

ProviderError ProviderError::invalidVersionFormat() {
  return ProviderError{Case::invalidVersionFormat};
}

ErrorCode ProviderError::code() const {
  switch (kind_) {
    case Case::versionCheckFailed: return ErrorCode::networkUnavailable;
    case Case::downloadFailed: return ErrorCode::downloadFailed;
    case Case::fileSaveFailed: return ErrorCode::fileSaveFailed;
    case Case::packageNotFound: return ErrorCode::packageNotFound;
    case Case::untrustedDownloadURL: return ErrorCode::untrustedSource;
    case Case::unsupportedChecksum: return ErrorCode::verifyFailed;
    case Case::sourceRetired: return ErrorCode::sourceUnavailable;
    case Case::invalidResponse:
    case Case::invalidVersionFormat: break;
  }
  return ErrorCode::metadataInvalid;
}

std::string ProviderError::errorDescription() const {
  switch (kind_) {
    case Case::versionCheckFailed: return "Failed to check for updates: " + payload_;
    case Case::downloadFailed: return "Download failed: " + payload_;
    case Case::fileSaveFailed: return "Failed to save downloaded file: " + payload_;
    case Case::packageNotFound: return "Package not found: " + payload_;
    case Case::untrustedDownloadURL:
      return fmt::format("Download from '{}' was blocked — domain not in trusted list", payload_);
    case Case::unsupportedChecksum:
      return fmt::format(
          "Package metadata uses an unsupported checksum algorithm '{}' — the download cannot be verified",
          payload_);
    case Case::sourceRetired:
      return "This installer's download location is no longer available — download a current installer";
    case Case::invalidResponse: return "Invalid package metadata response";
    case Case::invalidVersionFormat: return "Invalid package metadata format";
  }
  return {};
}

std::optional<ErrorCode> code(const AcquisitionError& error) {
  const auto* const ours = std::get_if<ProviderError>(&error);
  if (ours == nullptr) return std::nullopt;
  return ours->code();
}

std::string errorDescription(const AcquisitionError& error) {
  if (const auto* const ours = std::get_if<ProviderError>(&error)) return ours->errorDescription();
  return std::get<Error>(error).localizedDescription;
}

const InstallerRetirement* retirement(const AcquisitionError& error) {
  const auto* const ours = std::get_if<ProviderError>(&error);
  if (ours == nullptr || !ours->retirement()) return nullptr;
  return &*ours->retirement();
}

}  // namespace installer
