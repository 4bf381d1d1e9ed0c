// A source of packages, with its package, its progress and its errors; one error carries the verdict that the
// whole installer is stale. Two classes implement it: one for the CDN, one for the installer's own resources.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "Base/Error.h"
#include "Base/Path.h"
#include "Models/AppInfo.h"
#include "Models/Vocabulary.h"

namespace installer {

// The verdict that the whole installer is stale, and the address of a current one.
struct InstallerRetirement {
  RetirementReason reason = RetirementReason::expired;
  std::string downloadURL;               // the configured download page, as text
  std::optional<std::string> expiresOn;  // the date as configured; absent for `sourceUnavailable`

  friend bool operator==(const InstallerRetirement&, const InstallerRetirement&) = default;
};

// Why a package source couldn't deliver: an enumeration with payloads, a stable code for machines and a
// sentence for people.
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

  // An unreachable metadata server is a network failure. This is intended.
  ErrorCode code() const;
  std::string errorDescription() const;

  friend bool operator==(const ProviderError&, const ProviderError&) = default;

 private:
  explicit ProviderError(Case kind, std::string payload = {}) : kind_{kind}, payload_{std::move(payload)} {}

  Case kind_;
  std::string payload_;
  std::optional<InstallerRetirement> retirement_;
};

// A package on this disk, and what is expected of it.
struct AcquiredPackage {
  Path fileURL;                         // a local file, as a path
  std::optional<std::string> checksum;  // the expected digest; absent means that none can be verified
  bool skipGatekeeper = false;  // true for an image from the resources; such an image is never deleted
  std::optional<std::string> version;

  friend bool operator==(const AcquiredPackage&, const AcquiredPackage&) = default;
};

// This engine's sources fail with a `ProviderError`. A failure of another kind has no code.
using AcquisitionError = std::variant<ProviderError, Error>;

// The stable code; absent for a failure that isn't a `ProviderError`.
std::optional<ErrorCode> code(const AcquisitionError& error);
// The sentence for people.
std::string errorDescription(const AcquisitionError& error);
// Null for every failure but `sourceRetired`. Points into `error`.
const InstallerRetirement* retirement(const AcquisitionError& error);

// The progress of one app of a run. Passed unchanged from the package source to the `progress` event.
struct Progress {
  double percent = 0;          // 0 to 100 of this app's own progress
  bool indeterminate = false;  // the step can't be measured; `percent` is a fixed figure
  // Both absent outside the transfer.
  std::optional<std::int64_t> downloadedBytes = {};
  std::optional<std::int64_t> totalBytes = {};
};

class PackageProvider {
 public:
  // Called from any thread, and not after the completion has run. `detailText` is a second line, often
  // empty.
  using ProgressHandler = std::function<void(const std::string& statusText, const std::string& detailText,
                                             const Progress& progress)>;

  using Outcome = Expected<AcquiredPackage, AcquisitionError>;
  using Completion = std::function<void(Outcome)>;

  virtual ~PackageProvider() = default;

  // Gets the package of `app`; `label` names it in status texts. The completion runs at most once, on any
  // thread, perhaps before this returns. One app at a time; the next call on the same object starts clean.
  virtual void acquirePackage(const AppInfo& app, const std::string& label, ProgressHandler progressHandler,
                              Completion completion) = 0;

  // Cancels the current acquisition, if any.
  virtual void cancelAcquisition() = 0;

  virtual bool isOfflineMode() const = 0;
};

}  // namespace installer
