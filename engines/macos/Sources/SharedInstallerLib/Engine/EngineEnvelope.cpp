#include "Engine/EngineEnvelope.h"

#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "Engine/EngineEvent.h"
#include "Models/AppConstants.h"
#include "Models/PackageProvider.h"
#include "Utils/InstallerConfig.h"
#include "Utils/InstallerLifecycle.h"

// The records inside events, each as its own JSON object, and the marks of presence. For the envelope only.
namespace installer::EventRecords {

// Keeps the order of the keys, for people who read a transcript. Readers must not rely on it.
using Object = nlohmann::ordered_json;

Object encode(const CatalogAppEvent& app);
Object encode(const EngineEvent::UpdateCheckEntry& entry);
// An element of `results` in a `done`: with its own version and type, and without keys for absent values.
Object encode(const AppResultEvent& result);
Object encode(const InstallerRetirementEvent& retirement);
Object encode(const ReleaseNotes& notes);
template <class Plain>
Object encode(const Plain& value) {
  return value;
}
template <HasWireTable Value>
Object encode(const Value& value) {
  return rawValue(value);
}

template <class Record>
Object encodeAll(const std::vector<Record>& records) {
  auto array = Object::array();
  for (const auto& record : records) array.push_back(encode(record));
  return array;
}

template <class Value>
void putOrNull(Object& object, const char* key, const std::optional<Value>& value) {
  object[key] = value ? encode(*value) : Object{};
}

template <class Value>
void putIfPresent(Object& object, const char* key, const std::optional<Value>& value) {
  if (value) object[key] = encode(*value);
}

Object encode(const CatalogAppEvent& app) {
  Object object{{"id", app.id},
                {"displayName", app.displayName},
                {"descriptionCode", app.descriptionCode},
                {"iconName", app.iconName},
                {"updateAvailable", app.updateAvailable}};
  putOrNull(object, "installedVersion", app.installedVersion);
  putOrNull(object, "latestVersion", app.latestVersion);
  putOrNull(object, "sizeBytes", app.sizeBytes);
  putOrNull(object, "source", app.source);
  putOrNull(object, "webUrl", app.webUrl);
  putIfPresent(object, "requiredBytes", app.requiredBytes);
  putIfPresent(object, "installedPath", app.installedPath);
  putIfPresent(object, "releaseNotes", app.releaseNotes);
  return object;
}

Object encode(const EngineEvent::UpdateCheckEntry& entry) {
  Object object{{"id", entry.id}, {"updateAvailable", entry.updateAvailable}};
  putIfPresent(object, "latestVersion", entry.latestVersion);
  putIfPresent(object, "sizeBytes", entry.sizeBytes);
  putIfPresent(object, "requiredBytes", entry.requiredBytes);
  putIfPresent(object, "releaseNotes", entry.releaseNotes);
  return object;
}

Object encode(const AppResultEvent& result) {
  Object object{
      {"v", result.v}, {"type", result.type}, {"app", result.app}, {"status", rawValue(result.status)}};
  putIfPresent(object, "errorCode", result.errorCode);
  putIfPresent(object, "installedPath", result.installedPath);
  putIfPresent(object, "installedVersion", result.installedVersion);
  return object;
}

Object encode(const InstallerRetirementEvent& retirement) {
  Object object{{"reason", rawValue(retirement.reason)}, {"downloadUrl", retirement.downloadUrl}};
  putIfPresent(object, "expiresOn", retirement.expiresOn);
  return object;
}

Object encode(const ReleaseNotes& notes) {
  return notes.encode();
}

}  // namespace installer::EventRecords

namespace installer {

InstallerRetirementEvent InstallerRetirementEvent::of(const InstallerRetirement& retirement) {
  return {
      .reason = retirement.reason, .downloadUrl = retirement.downloadURL, .expiresOn = retirement.expiresOn};
}

std::optional<InstallerRetirementEvent> InstallerRetirementEvent::of(
    const std::optional<InstallerRetirement>& retirement) {
  if (!retirement) return std::nullopt;
  return of(*retirement);
}

namespace {

using Object = EventRecords::Object;
using EventRecords::putIfPresent;
using EventRecords::putOrNull;

Object envelopeOf(std::string_view type) {
  return {{"v", kEngineProtocolVersion}, {"type", type}};
}

Object encodePayload(const EngineEvent::Hello& event) {
  auto object = envelopeOf("hello");
  object["engineVersion"] = kEngineVersion;
  object["protocolVersion"] = kEngineProtocolVersion;
  object["platform"] = "macos";
  object["mode"] = rawValue(event.mode);
  object["capabilities"] = EventRecords::encodeAll(event.capabilities);
  object["helpUrl"] = InstallerConfig::helpURL();
  object["feedbackUrl"] = InstallerConfig::feedbackURL();
  object["apps"] = EventRecords::encodeAll(event.apps);
  putIfPresent(object, "installerRetired", event.retirement);
  return object;
}

Object encodePayload(const EngineEvent::UpdateCheckResult& event) {
  auto object = envelopeOf("update-check-result");
  object["apps"] = EventRecords::encodeAll(event.apps);
  putIfPresent(object, "installerRetired", event.retirement);
  return object;
}

Object encodePayload(const EngineEvent::Stage& event) {
  auto object = envelopeOf("stage");
  object["app"] = event.app;
  object["stage"] = rawValue(event.stage);
  putIfPresent(object, "index", event.index);
  putIfPresent(object, "total", event.total);
  return object;
}

// A whole number is written without a fraction.
Object numberOf(double value) {
  constexpr double exactIntegers = 1LL << std::numeric_limits<double>::digits;
  if (std::trunc(value) == value && std::abs(value) <= exactIntegers) return static_cast<std::int64_t>(value);
  return value;
}

// Absent unless both counts are known and the total is above zero.
std::optional<Object> detailArgs(const Progress& progress) {
  if (!progress.downloadedBytes || progress.totalBytes.value_or(0) < 1) return std::nullopt;
  return Object{{"downloadedBytes", *progress.downloadedBytes}, {"totalBytes", *progress.totalBytes}};
}

Object encodePayload(const EngineEvent::Progress& event) {
  auto object = envelopeOf("progress");
  putIfPresent(object, "app", event.app);
  object["percent"] = numberOf(event.progress.percent);
  object["indeterminate"] = event.progress.indeterminate;
  if (event.stage) object["detailCode"] = detailCode(*event.stage);
  putIfPresent(object, "detailArgs", detailArgs(event.progress));
  return object;
}

// Differs from the record's encoding: here the three absent values are null, there they are left out.
Object encodePayload(const EngineEvent::AppResult& event) {
  auto object = envelopeOf("app-result");
  object["app"] = event.result.app;
  object["status"] = rawValue(event.result.status);
  putOrNull(object, "errorCode", event.result.errorCode);
  putOrNull(object, "installedPath", event.result.installedPath);
  putOrNull(object, "installedVersion", event.result.installedVersion);
  return object;
}

Object encodePayload(const EngineEvent::DiskFreeResult& event) {
  auto object = envelopeOf("disk-free-result");
  object["path"] = event.path;
  putOrNull(object, "freeBytes", event.freeBytes);
  return object;
}

Object encodePayload(const EngineEvent::ExportLogsResult& event) {
  auto object = envelopeOf("export-logs-result");
  putOrNull(object, "path", event.path);
  putOrNull(object, "errorCode", event.errorCode);
  return object;
}

Object encodePayload(const EngineEvent::Done& event) {
  auto object = envelopeOf("done");
  object["action"] = rawValue(event.action);
  object["exitCode"] = std::to_underlying(event.exitCode);
  if (event.results) object["results"] = EventRecords::encodeAll(*event.results);
  putIfPresent(object, "installerRetired",
               InstallerRetirementEvent::of(InstallerLifecycle::currentRetirement()));
  return object;
}

Object encodePayload(const EngineEvent::Log& event) {
  auto object = envelopeOf("log");
  object["level"] = rawValue(event.level);
  object["message"] = event.message;
  return object;
}

bool isEncodable(const EngineEvent::Payload& payload) {
  const auto* progress = std::get_if<EngineEvent::Progress>(&payload);
  return progress == nullptr || std::isfinite(progress->progress.percent);
}

// JSON text has slashes only inside strings, so a plain replacement is correct.
std::string withEscapedSlashes(const std::string& json) {
  std::string escaped;
  escaped.reserve(json.size() + 16);
  for (const char c : json) {
    if (c == '/') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

}  // namespace

Result<std::string> EngineEnvelope::encode(const EngineEvent& event) {
  if (!isEncodable(event.payload)) {
    return failure(ErrorDomain::cocoa, CocoaError::fileReadCorrupt, "percent isn't a finite number");
  }
  const Object object = std::visit([](const auto& payload) { return encodePayload(payload); }, event.payload);
  return withEscapedSlashes(object.dump(-1, ' ', false, Object::error_handler_t::replace));
}

}  // namespace installer
