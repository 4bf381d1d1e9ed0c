#include "Engine/EngineEnvelope.h"

#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <string_view>
#include <utility>

#include "Engine/EventRecords.h"
#include "Models/EngineVersion.h"
#include "Utils/InstallerConfig.h"
#include "Utils/InstallerLifecycle.h"

namespace installer {

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
  object["mode"] = event.mode;
  object["capabilities"] = event.capabilities;
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
  object["stage"] = event.stage;
  putIfPresent(object, "index", event.index);
  putIfPresent(object, "total", event.total);
  return object;
}

// A whole number goes out without a fraction, as a shell's author would write it.
Object numberOf(double value) {
  constexpr double exactIntegers = 1LL << std::numeric_limits<double>::digits;
  if (std::trunc(value) == value && std::abs(value) <= exactIntegers) return static_cast<std::int64_t>(value);
  return value;
}

Object encodePayload(const EngineEvent::Progress& event) {
  auto object = envelopeOf("progress");
  putIfPresent(object, "app", event.app);
  object["percent"] = numberOf(event.percent);
  object["indeterminate"] = event.indeterminate;
  putIfPresent(object, "detailCode", event.detailCode);
  putIfPresent(object, "detailArgs", event.detailArgs);
  return object;
}

// Not the record's own encoding: the three optionals are null here and left out there.
Object encodePayload(const EngineEvent::AppResult& event) {
  auto object = envelopeOf("app-result");
  object["app"] = event.result.app;
  object["status"] = event.result.status;
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
  object["action"] = event.action;
  object["exitCode"] = event.exitCode;
  if (event.results) object["results"] = EventRecords::encodeAll(*event.results);
  putIfPresent(object, "installerRetired",
               InstallerRetirementEvent::of(InstallerLifecycle::currentRetirement()));
  return object;
}

Object encodePayload(const EngineEvent::Log& event) {
  auto object = envelopeOf("log");
  object["level"] = event.level;
  object["message"] = event.message;
  return object;
}

bool isEncodable(const EngineEvent::Payload& payload) {
  const auto* progress = std::get_if<EngineEvent::Progress>(&payload);
  return progress == nullptr || std::isfinite(progress->percent);
}

// A slash can only stand inside a string of JSON text, so this needs no look at the structure.
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
