// Everything that the engine can tell a shell, one payload per kind of event.
// Plain values; how they look on the wire is EngineEnvelope's business.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "Engine/AppResultEvent.h"
#include "Engine/CatalogAppEvent.h"
#include "Engine/InstallerRetirementEvent.h"

namespace installer {

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
