#include "eventreader/EventSummary.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

#include "nlohmann/json.hpp"

#include "Base/JSONReader.h"

namespace lab {
namespace {

using Json = nlohmann::json;

std::optional<std::string> text(const Json& event, const char* key) {
  const auto found = installer::JSONReader::string(event, key);
  return found ? std::optional{harmless(*found)} : std::nullopt;
}

std::string textOr(const Json& event, const char* key, const char* fallback) {
  return text(event, key).value_or(fallback);
}

std::optional<double> number(const Json& event, const char* key) {
  const Json* const found = installer::JSONReader::member(event, key);
  return found != nullptr && found->is_number() ? std::optional{found->get<double>()} : std::nullopt;
}

// The meanings of the error codes, from the protocol's vocabulary.
constexpr std::pair<std::string_view, std::string_view> kSentences[] = {
#include "ErrorSentences.inc"
};

std::string explained(const std::string& code) {
  const auto known = std::ranges::find(kSentences, code, [](const auto& entry) { return entry.first; });
  return known == std::end(kSentences) ? code : fmt::format("{} ({})", known->second, code);
}

AppStep progressOf(const Json& event) {
  AppStep step;
  step.app = textOr(event, "app", "");
  step.percent = number(event, "percent");
  step.indeterminate = installer::JSONReader::boolean(event, "indeterminate").value_or(false);
  if (const Json* const arguments = installer::JSONReader::member(event, "detailArgs")) {
    step.downloadedBytes = number(*arguments, "downloadedBytes");
    step.totalBytes = number(*arguments, "totalBytes");
  }
  return step;
}

AppStep resultOf(const Json& event) {
  AppStep step;
  step.app = textOr(event, "app", "");
  step.status = textOr(event, "status", "?");
  if (const auto code = text(event, "errorCode"))
    *step.status += ": " + explained(*code);
  else if (const auto version = text(event, "installedVersion"))
    *step.status += " " + *version;
  return step;
}

// One line for each note of the newest release.
std::string describeNotes(const Json& app) {
  const auto notes = app.value(Json::json_pointer{"/releaseNotes/releases/0/notes"}, Json{});
  std::string lines;
  for (const Json& note : notes) {
    if (note.is_string()) lines += "\n    - " + harmless(note.get<std::string>());
  }
  return lines;
}

std::string describeRetirement(const Json& event) {
  const Json* const retired = installer::JSONReader::member(event, "installerRetired");
  if (retired == nullptr || !retired->is_object()) return "";
  return fmt::format("\nthis installer is out of date ({}); a current one is at {}",
                     textOr(*retired, "reason", "?"), textOr(*retired, "downloadUrl", "?"));
}

std::string describeApp(const Json& app) {
  std::string line = "  " + textOr(app, "displayName", textOr(app, "id", "?").c_str());
  if (const auto installed = text(app, "installedVersion")) line += ", installed " + *installed;
  if (const auto latest = text(app, "latestVersion")) line += ", latest " + *latest;
  if (installer::JSONReader::boolean(app, "updateAvailable").value_or(false)) line += ", update available";
  return line + describeNotes(app);
}

std::string describeApps(const Json& event, std::string line) {
  const Json* const apps = installer::JSONReader::member(event, "apps");
  if (apps == nullptr || !apps->is_array()) return line;
  for (const Json& app : *apps) {
    if (app.is_object()) line += "\n" + describeApp(app);
  }
  return line;
}

std::string describeFailure(const Json& event, const std::string& what) {
  const auto code = text(event, "errorCode");
  return code ? what + " failed: " + *code : what + ": " + textOr(event, "path", "?");
}

std::optional<std::string> wordsOf(const std::string& type, const Json& event) {
  if (type == "hello") {
    return describeApps(event, fmt::format("engine {} ({})", textOr(event, "engineVersion", "?"),
                                           textOr(event, "mode", "?")));
  }
  if (type == "update-check-result") return describeApps(event, "latest versions");
  if (type == "log") return textOr(event, "level", "info") + ": " + textOr(event, "message", "");
  if (type == "export-logs-result") return describeFailure(event, "log bundle");
  if (type == "disk-free-result") {
    const auto free = number(event, "freeBytes");
    return fmt::format("{}: {}", textOr(event, "path", "?"),
                       free ? megabytes(*free) + " MB free" : "free space unknown");
  }
  if (type == "done") {
    return fmt::format("done: {}, exit code {}", textOr(event, "action", "?"),
                       number(event, "exitCode").value_or(-1)) +
           describeRetirement(event);
  }
  return std::nullopt;
}

}  // namespace

std::string megabytes(double bytes) {
  return fmt::format("{:.1f}", bytes / 1e6);
}

std::string harmless(std::string_view text) {
  std::string kept;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x20 || byte == 0x7f) continue;
    // The two-byte sequences of the controls U+0080 to U+009F.
    if (byte == 0xc2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xa0) {
      ++i;
      continue;
    }
    kept += text[i];
  }
  return kept;
}

std::optional<Event> parseEvent(std::string_view line) {
  const Json event = Json::parse(line, nullptr, false);
  if (!event.is_object()) return std::nullopt;
  const auto type = text(event, "type");
  if (!type) return std::nullopt;
  if (*type == "progress") return Event{.step = progressOf(event), .words = {}};
  if (*type == "app-result") return Event{.step = resultOf(event), .words = {}};
  if (*type != "stage") {
    return Event{.step = {},
                 .words = wordsOf(*type, event),
                 .isRoutine = textOr(event, "level", "") == "info",
                 .isDone = *type == "done"};
  }
  AppStep step;
  step.app = textOr(event, "app", "");
  step.stage = textOr(event, "stage", "?");
  return Event{.step = step, .words = {}};
}

}  // namespace lab
