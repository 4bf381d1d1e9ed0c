// Everything that the engine can tell a shell, one payload per kind of event.
// Plain values; how they look on the wire is EngineEnvelope's business.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Models/AppConstants.h"
#include "Models/ReleaseNotes.h"

namespace installer {

// The fixed words of the wire that the engine's own floor speaks.
// A shell compares them to the letter, so none may ever change its spelling.
namespace EventLevel {
inline constexpr std::string_view info = "info";
inline constexpr std::string_view warn = "warn";
inline constexpr std::string_view error = "error";
}  // namespace EventLevel

namespace ErrorCode {
inline constexpr std::string_view networkUnavailable = "NETWORK_UNAVAILABLE";
inline constexpr std::string_view installFailed = "INSTALL_FAILED";
inline constexpr std::string_view notCompatible = "NOT_COMPATIBLE";
inline constexpr std::string_view uninstallFailed = "UNINSTALL_FAILED";
inline constexpr std::string_view uninstallPermissionDenied = "UNINSTALL_PERMISSION_DENIED";
inline constexpr std::string_view uninstallAuthCancelled = "UNINSTALL_AUTH_CANCELLED";
inline constexpr std::string_view skipped = "SKIPPED";
inline constexpr std::string_view unknown = "UNKNOWN";
}  // namespace ErrorCode

// How one app of a run ended, in the words of the wire.
// The human text of a failure is deliberately missing: it stays in the log file, and a shell words the
// failure from `errorCode`.
struct AppResultEvent {
  std::int64_t v = kEngineProtocolVersion;
  std::string type = "app-result";
  std::string app;     // raw value of an AppIdentifier
  std::string status;  // one of AppStatus
  std::optional<std::string> errorCode;
  std::optional<std::string> installedPath;
  std::optional<std::string> installedVersion;

  friend bool operator==(const AppResultEvent&, const AppResultEvent&) = default;
};

// One row of the catalog as a shell sees it: what the app is, what stands on the machine, what is on offer.
// The first five optionals go out as null when absent, the last three leave their key out.
struct CatalogAppEvent {
  std::string id;  // raw value of an AppIdentifier
  std::string displayName;
  std::string descriptionCode;  // key of the shell's own texts
  std::string iconName;
  bool updateAvailable = false;
  std::optional<std::string> installedVersion;
  std::optional<std::string> latestVersion;
  std::optional<std::int64_t> sizeBytes;  // of the download
  std::optional<std::string> source;      // "direct" or "appstore"; absent when not installed
  std::optional<std::string> webUrl;
  std::optional<std::int64_t> requiredBytes;  // peak need of disk space while installing
  std::optional<std::string> installedPath;
  std::optional<ReleaseNotes> releaseNotes;

  friend bool operator==(const CatalogAppEvent&, const CatalogAppEvent&) = default;
};

// The verdict that this installer is stale, as it goes out on the wire.
struct InstallerRetirement;

struct InstallerRetirementEvent {
  std::string reason;                    // "expired" or "source-unavailable"
  std::string downloadUrl;               // where a current installer can be had
  std::optional<std::string> expiresOn;  // the last valid day, yyyy-MM-dd

  static InstallerRetirementEvent of(const InstallerRetirement& retirement);
  static std::optional<InstallerRetirementEvent> of(const std::optional<InstallerRetirement>& retirement);

  friend bool operator==(const InstallerRetirementEvent&, const InstallerRetirementEvent&) = default;
};

struct EngineEvent {
  struct UpdateCheckEntry {
    std::string id;  // raw value of an AppIdentifier
    bool updateAvailable = false;
    std::optional<std::string> latestVersion;
    std::optional<std::int64_t> sizeBytes;      // of the download
    std::optional<std::int64_t> requiredBytes;  // peak need of disk space while installing
    std::optional<ReleaseNotes> releaseNotes;
  };

  struct Hello {
    std::string mode;  // "online" or "offline"
    std::vector<std::string> capabilities;
    std::vector<CatalogAppEvent> apps;
    std::optional<InstallerRetirementEvent> retirement;
  };

  struct UpdateCheckResult {
    std::vector<UpdateCheckEntry> apps;
    std::optional<InstallerRetirementEvent> retirement;
  };

  // The app has entered a stage.
  struct Stage {
    std::string app;
    std::string stage;                  // "download", "verify", "install" or "uninstall"
    std::optional<std::int64_t> index;  // the app's number in this run, from 1
    std::optional<std::int64_t> total;  // apps in this run
  };

  struct Progress {
    std::optional<std::string> app;
    double percent = 0;          // 0 to 100 of this app's own progress
    bool indeterminate = false;  // `percent` only fills a bar that can't measure
    std::optional<std::string> detailCode;
    std::optional<std::map<std::string, std::int64_t>> detailArgs;
  };

  struct AppResult {
    AppResultEvent result;
  };

  struct DiskFreeResult {
    std::string path;  // as the operation received it
    std::optional<std::int64_t> freeBytes;
  };

  struct ExportLogsResult {
    std::optional<std::string> path;  // absent on failure
    std::optional<std::string> errorCode;
  };

  // The last event of every operation that gets as far as the controller.
  struct Done {
    std::string action;
    std::int32_t exitCode = 0;
    std::optional<std::vector<AppResultEvent>> results;  // of a run; absent after a query
  };

  struct Log {
    std::string level;  // "info", "warn" or "error"
    std::string message;
  };

  using Payload = std::variant<Hello, UpdateCheckResult, Stage, Progress, AppResult, DiskFreeResult,
                               ExportLogsResult, Done, Log>;
  Payload payload;
};

}  // namespace installer
