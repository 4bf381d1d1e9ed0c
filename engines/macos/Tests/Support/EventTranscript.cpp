#include "Support/EventTranscript.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace installer::test {

namespace {

std::string text(const Json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || found->is_null()) return {};
  return found->is_string() ? found->get<std::string>() : found->dump();
}

std::string withText(std::string line, const Json& object, std::initializer_list<const char*> keys) {
  for (const auto* key : keys) {
    if (const auto value = text(object, key); !value.empty()) line += " " + value;
  }
  return line;
}

std::string resultText(const Json& result) {
  return withText(text(result, "app"), result, {"status", "errorCode", "installedPath", "installedVersion"});
}

std::string progressLine(const Json& event) {
  auto line =
      fmt::format("progress {} {}{}% {}", text(event, "app"), event.value("indeterminate", false) ? "~" : "",
                  text(event, "percent"), text(event, "detailCode"));
  if (const auto args = event.find("detailArgs"); args != event.end()) {
    line += fmt::format(" {} of {}", text(*args, "downloadedBytes"), text(*args, "totalBytes"));
  }
  return line;
}

std::string doneLine(const Json& event) {
  auto line = withText("done", event, {"action", "exitCode"});
  const auto results = event.find("results");
  if (results == event.end()) return line;
  line += ":";
  for (const auto& result : *results) {
    line += (&result == &results->front() ? " " : ", ") + resultText(result);
  }
  return line;
}

}  // namespace

std::string transcriptLine(const Json& event) {
  const auto type = text(event, "type");
  if (type == "log") return fmt::format("log {}: {}", text(event, "level"), text(event, "message"));
  if (type == "stage") {
    return fmt::format("stage {} {} {}/{}", text(event, "app"), text(event, "stage"), text(event, "index"),
                       text(event, "total"));
  }
  if (type == "progress") return progressLine(event);
  if (type == "app-result") return "app-result " + resultText(event);
  if (type == "done") return doneLine(event);
  return type;
}

std::vector<std::string> transcript(const std::vector<Json>& events) {
  std::vector<std::string> lines;
  for (const auto& event : events) lines.push_back(transcriptLine(event));
  return lines;
}

}  // namespace installer::test
