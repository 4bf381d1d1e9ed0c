// Where packages come from. Two sources keep this contract: the CDN, and the installer's own resources.
#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "Base/Error.h"
#include "Models/AcquiredPackage.h"
#include "Models/AppInfo.h"
#include "Models/ProviderError.h"

namespace installer {

// The sources of this engine fail with a `ProviderError`. A failure of any other kind has no code of its own.
using AcquisitionError = std::variant<ProviderError, Error>;

// The stable code; absent for a failure that isn't a `ProviderError`.
std::optional<std::string_view> code(const AcquisitionError& error);
// The sentence for people.
std::string errorDescription(const AcquisitionError& error);
// Null for every failure but `sourceRetired`. Points into `error`.
const InstallerRetirement* retirement(const AcquisitionError& error);

class PackageProvider {
 public:
  // Called from any thread, and no more once the completion has run. `detailText` is a second line, often
  // empty; `appLocalProgress` runs from 0 to 100 for this app; both byte counts are absent outside the
  // transfer.
  using ProgressHandler = std::function<void(
      const std::string& statusText, const std::string& detailText, double appLocalProgress,
      std::optional<std::int64_t> downloadedBytes, std::optional<std::int64_t> totalBytes)>;

  using Outcome = std::expected<AcquiredPackage, AcquisitionError>;
  using Completion = std::function<void(Outcome)>;

  virtual ~PackageProvider() = default;

  // Gets the package of `app`; `label` names it in status texts. The completion runs at most once, on
  // whatever thread the source is on, perhaps before this returns. One app at a time; the next call on the
  // same object starts clean.
  virtual void acquirePackage(const AppInfo& app, const std::string& label, ProgressHandler progressHandler,
                              Completion completion) = 0;

  // Gives up the current acquisition, if any.
  virtual void cancelAcquisition() = 0;

  virtual bool isOfflineMode() const = 0;
};

}  // namespace installer
