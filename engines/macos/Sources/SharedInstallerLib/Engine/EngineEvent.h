// The events of the engine, one payload per kind of event. Plain values; EngineEnvelope encodes them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "Models/AppConstants.h"
#include "Models/PackageProvider.h"
#include "Models/ReleaseNotes.h"
#include "Models/Vocabulary.h"

namespace installer {

// The result of one app of a run. It intentionally has no text of a failure: the text is in the log file, and
// a shell has its own text for `errorCode`.
struct AppResultEvent {
  std::int64_t v = kEngineProtocolVersion;
  std::string type = "app-result";
  std::string app;  // raw value of an AppIdentifier
  AppStatus status = AppStatus::failed;
  std::optional<ErrorCode> errorCode;
  std::optional<std::string> installedPath;
  std::optional<std::string> installedVersion;

  friend bool operator==(const AppResultEvent&, const AppResultEvent&) = default;
};

// One row of the catalog for a shell: the app, its installed copy and the available version. The first five
// optionals are null when absent; the keys of the last three are left out.
struct CatalogAppEvent {
  std::string id;  // raw value of an AppIdentifier
  std::string displayName;
  std::string descriptionCode;  // key of a text in the shell
  std::string iconName;
  bool updateAvailable = false;
  std::optional<std::string> installedVersion;
  std::optional<std::string> latestVersion;
  std::optional<std::int64_t> sizeBytes;  // of the download
  std::optional<CopySource> source;       // absent when not installed
  std::optional<std::string> webUrl;
  std::optional<std::int64_t> requiredBytes;  // peak disk space during an install
  std::optional<std::string> installedPath;
  std::optional<ReleaseNotes> releaseNotes;

  friend bool operator==(const CatalogAppEvent&, const CatalogAppEvent&) = default;
};

// The verdict that this installer is stale, for an event.
struct InstallerRetirementEvent {
  RetirementReason reason = RetirementReason::expired;
  std::string downloadUrl;               // the address of a current installer
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
    std::optional<std::int64_t> requiredBytes;  // peak disk space during an install
    std::optional<ReleaseNotes> releaseNotes;
  };

  struct Hello {
    PackageSourceMode mode = PackageSourceMode::online;
    std::vector<Capability> capabilities;
    std::vector<CatalogAppEvent> apps;
    std::optional<InstallerRetirementEvent> retirement;
  };

  struct UpdateCheckResult {
    std::vector<UpdateCheckEntry> apps;
    std::optional<InstallerRetirementEvent> retirement;
  };

  // An app has entered a stage.
  struct Stage {
    std::string app;
    AppStage stage = AppStage::download;
    std::optional<std::int64_t> index;  // the app's number in this run, from 1
    std::optional<std::int64_t> total;  // apps in this run
  };

  struct Progress {
    std::optional<std::string> app;
    installer::Progress progress;   // the byte counts are encoded as `detailArgs`
    std::optional<AppStage> stage;  // encoded as its detail code
  };

  struct AppResult {
    AppResultEvent result;
  };

  struct DiskFreeResult {
    std::string path;  // as passed to the operation
    std::optional<std::int64_t> freeBytes;
  };

  struct ExportLogsResult {
    std::optional<std::string> path;  // absent on failure
    std::optional<ErrorCode> errorCode;
  };

  // The last event of every operation of the controller.
  struct Done {
    Action action = Action::hello;
    ExitCode exitCode = ExitCode::success;
    std::optional<std::vector<AppResultEvent>> results;  // of a run; absent after a query
  };

  struct Log {
    EventLevel level = EventLevel::info;
    std::string message;
  };

  using Payload = std::variant<Hello, UpdateCheckResult, Stage, Progress, AppResult, DiskFreeResult,
                               ExportLogsResult, Done, Log>;
  Payload payload;
};

}  // namespace installer
