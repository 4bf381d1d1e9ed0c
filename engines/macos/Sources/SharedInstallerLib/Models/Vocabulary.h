// The words of the protocol: one enumeration and one table per kind. Shells and scripts compare the words
// exactly, so no word may ever change. protocol/vocabulary.json lists the same words with their meanings; a
// test compares both.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace installer {

enum class Action { install, update, uninstall, hello, checkUpdates, diskFree, exportLogs };

// How one app of a run ended.
enum class AppStatus { installed, updated, skipped, failed, cancelled, uninstalled, alreadyAbsent };

// Why an app failed or was skipped, or why an export failed.
enum class ErrorCode {
  networkUnavailable,
  downloadFailed,
  fileSaveFailed,
  packageNotFound,
  untrustedSource,
  verifyFailed,
  sourceUnavailable,
  metadataInvalid,
  gatekeeperFailed,
  signatureFailed,
  installFailed,  // any failure of an install that has no other code
  notCompatible,
  uninstallFailed,
  uninstallPermissionDenied,
  uninstallAuthCancelled,
  skipped,
  unknown
};

// The severity of a message for a person.
enum class EventLevel { info, warn, error };

// The current step of an app.
enum class AppStage { download, verify, install, uninstall };

// Where packages come from: from the CDN, or from beside the installer.
enum class PackageSourceMode { online, offline };

// The origin of an installed copy.
enum class CopySource { direct, appStore };

// What `hello` offers to a shell.
enum class Capability { install, update, uninstall, checkUpdates, offline, exportLogs, skipTerms };

// Why the whole installer is stale.
enum class RetirementReason {
  expired,           // the build's last day of validity has passed
  sourceUnavailable  // the CDN tree is gone while the outside world can be reached
};

// The exit status of the process; the numbers are fixed.
enum class ExitCode : std::int32_t {
  success = 0,
  partialSuccess = 1,
  fullFailure = 2,
  invalidArguments = 3,
  permissionDenied = 4,
  networkFailure = 5
};

template <class Value>
struct WireRow {
  Value value;
  std::string_view word;
};

struct StageRow : WireRow<AppStage> {
  std::string_view detailCode;
};

// One row per enumerator, in the order of the declaration; empty for a type without words.
template <class Value>
inline constexpr std::array<WireRow<Value>, 0> kWireTable{};

template <>
inline constexpr auto kWireTable<Action> = std::to_array<WireRow<Action>>({
    {Action::install, "install"},
    {Action::update, "update"},
    {Action::uninstall, "uninstall"},
    {Action::hello, "hello"},
    {Action::checkUpdates, "check-updates"},
    {Action::diskFree, "disk-free"},
    {Action::exportLogs, "export-logs"},
});

template <>
inline constexpr auto kWireTable<AppStatus> = std::to_array<WireRow<AppStatus>>({
    {AppStatus::installed, "installed"},
    {AppStatus::updated, "updated"},
    {AppStatus::skipped, "skipped"},
    {AppStatus::failed, "failed"},
    {AppStatus::cancelled, "cancelled"},
    {AppStatus::uninstalled, "uninstalled"},
    {AppStatus::alreadyAbsent, "already_absent"},
});

template <>
inline constexpr auto kWireTable<ErrorCode> = std::to_array<WireRow<ErrorCode>>({
    {ErrorCode::networkUnavailable, "NETWORK_UNAVAILABLE"},
    {ErrorCode::downloadFailed, "DOWNLOAD_FAILED"},
    {ErrorCode::fileSaveFailed, "FILE_SAVE_FAILED"},
    {ErrorCode::packageNotFound, "PACKAGE_NOT_FOUND"},
    {ErrorCode::untrustedSource, "UNTRUSTED_SOURCE"},
    {ErrorCode::verifyFailed, "VERIFY_FAILED"},
    {ErrorCode::sourceUnavailable, "SOURCE_UNAVAILABLE"},
    {ErrorCode::metadataInvalid, "METADATA_INVALID"},
    {ErrorCode::gatekeeperFailed, "GATEKEEPER_FAILED"},
    {ErrorCode::signatureFailed, "SIGNATURE_FAILED"},
    {ErrorCode::installFailed, "INSTALL_FAILED"},
    {ErrorCode::notCompatible, "NOT_COMPATIBLE"},
    {ErrorCode::uninstallFailed, "UNINSTALL_FAILED"},
    {ErrorCode::uninstallPermissionDenied, "UNINSTALL_PERMISSION_DENIED"},
    {ErrorCode::uninstallAuthCancelled, "UNINSTALL_AUTH_CANCELLED"},
    {ErrorCode::skipped, "SKIPPED"},
    {ErrorCode::unknown, "UNKNOWN"},
});

template <>
inline constexpr auto kWireTable<EventLevel> = std::to_array<WireRow<EventLevel>>({
    {EventLevel::info, "info"},
    {EventLevel::warn, "warn"},
    {EventLevel::error, "error"},
});

template <>
inline constexpr auto kWireTable<AppStage> = std::to_array<StageRow>({
    {{AppStage::download, "download"}, "DOWNLOADING"},
    {{AppStage::verify, "verify"}, "VERIFYING"},
    {{AppStage::install, "install"}, "INSTALLING"},
    {{AppStage::uninstall, "uninstall"}, "UNINSTALLING"},
});

template <>
inline constexpr auto kWireTable<PackageSourceMode> = std::to_array<WireRow<PackageSourceMode>>({
    {PackageSourceMode::online, "online"},
    {PackageSourceMode::offline, "offline"},
});

template <>
inline constexpr auto kWireTable<CopySource> = std::to_array<WireRow<CopySource>>({
    {CopySource::direct, "direct"},
    {CopySource::appStore, "appstore"},
});

template <>
inline constexpr auto kWireTable<Capability> = std::to_array<WireRow<Capability>>({
    {Capability::install, "install"},
    {Capability::update, "update"},
    {Capability::uninstall, "uninstall"},
    {Capability::checkUpdates, "check-updates"},
    {Capability::offline, "offline"},
    {Capability::exportLogs, "export-logs"},
    {Capability::skipTerms, "skip-terms"},
});

template <>
inline constexpr auto kWireTable<RetirementReason> = std::to_array<WireRow<RetirementReason>>({
    {RetirementReason::expired, "expired"},
    {RetirementReason::sourceUnavailable, "source-unavailable"},
});

// True when the table has one row per enumerator, in their order. `last` is the last enumerator.
template <class Value>
consteval bool isWholeTable(Value last) {
  const auto& table = kWireTable<Value>;
  for (std::size_t i = 0; i < table.size(); ++i) {
    if (table[i].value != static_cast<Value>(i)) return false;
  }
  return table.size() == static_cast<std::size_t>(last) + 1;
}
static_assert(isWholeTable(Action::exportLogs));
static_assert(isWholeTable(AppStatus::alreadyAbsent));
static_assert(isWholeTable(ErrorCode::unknown));
static_assert(isWholeTable(EventLevel::error));
static_assert(isWholeTable(AppStage::uninstall));
static_assert(isWholeTable(PackageSourceMode::offline));
static_assert(isWholeTable(CopySource::appStore));
static_assert(isWholeTable(Capability::skipTerms));
static_assert(isWholeTable(RetirementReason::sourceUnavailable));

template <class Value>
concept HasWireTable = !kWireTable<Value>.empty();

template <HasWireTable Value>
constexpr const auto& wireRow(Value value) {
  return kWireTable<Value>[static_cast<std::size_t>(value)];
}

// The word on the wire.
template <HasWireTable Value>
constexpr std::string_view rawValue(Value value) {
  return wireRow(value).word;
}

// Exact and case-sensitive; absent for any other word.
template <HasWireTable Value>
constexpr std::optional<Value> fromRawValue(std::string_view word) {
  for (const auto& row : kWireTable<Value>) {
    if (row.word == word) return row.value;
  }
  return std::nullopt;
}

// The `detailCode` of the progress in this stage.
constexpr std::string_view detailCode(AppStage stage) {
  return wireRow(stage).detailCode;
}

}  // namespace installer
