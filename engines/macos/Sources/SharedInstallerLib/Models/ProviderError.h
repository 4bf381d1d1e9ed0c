// Why a package source couldn't deliver: an enumeration with payloads, a stable code for machines and a
// sentence for people.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Models/InstallerRetirement.h"

namespace installer {

class ProviderError {
 public:
  enum class Case {
    versionCheckFailed,
    downloadFailed,
    fileSaveFailed,
    packageNotFound,
    untrustedDownloadURL,
    unsupportedChecksum,
    sourceRetired,
    invalidResponse,
    invalidVersionFormat
  };

  static ProviderError versionCheckFailed(std::string reason);
  static ProviderError downloadFailed(std::string reason);
  static ProviderError fileSaveFailed(std::string reason);
  static ProviderError packageNotFound(std::string name);
  static ProviderError untrustedDownloadURL(std::string host);
  static ProviderError unsupportedChecksum(std::string algorithm);
  static ProviderError sourceRetired(InstallerRetirement retirement);
  static ProviderError invalidResponse();
  static ProviderError invalidVersionFormat();

  Case kind() const { return kind_; }
  // Empty for the cases without a text.
  const std::string& payload() const { return payload_; }
  // Present for `sourceRetired` only.
  const std::optional<InstallerRetirement>& retirement() const { return retirement_; }

  // Such as "DOWNLOAD_FAILED". An unreachable metadata server is a network failure, by intent.
  std::string_view code() const;
  std::string errorDescription() const;

  friend bool operator==(const ProviderError&, const ProviderError&) = default;

 private:
  explicit ProviderError(Case kind, std::string payload = {}) : kind_{kind}, payload_{std::move(payload)} {}

  Case kind_;
  std::string payload_;
  std::optional<InstallerRetirement> retirement_;
};

}  // namespace installer
