#include "Platform/Linux/HTTP/ResumeData.h"

#include <nlohmann/json.hpp>

namespace installer {

namespace {

using Json = nlohmann::json;

constexpr const char* format = "kelo-download-1";

std::optional<std::string> text(const Json& json, const char* key) {
  const auto entry = json.find(key);
  if (entry == json.end() || !entry->is_string()) return std::nullopt;
  return entry->get<std::string>();
}

std::optional<std::int64_t> count(const Json& json, const char* key) {
  const auto entry = json.find(key);
  if (entry == json.end() || !entry->is_number_integer()) return std::nullopt;
  return entry->get<std::int64_t>();
}

}  // namespace

std::string ResumeData::encode() const {
  Json json{{"format", format},
            {"url", url.absoluteString()},
            {"file", partialFile},
            {"validator", validator.text()},
            {"received", received}};
  if (total) json["total"] = *total;
  return json.dump(-1, ' ', true, Json::error_handler_t::replace);
}

std::optional<ResumeData> ResumeData::decode(std::string_view bytes) {
  const auto json = Json::parse(bytes, nullptr, false);
  if (!json.is_object() || text(json, "format") != format) return std::nullopt;
  const auto url = URL::parse(text(json, "url").value_or(""));
  const auto file = text(json, "file");
  const auto validator = Validator::parse(text(json, "validator").value_or(""));
  const auto received = count(json, "received");
  const auto total = count(json, "total");
  if (!url || !file || !validator || !received || *received <= 0) return std::nullopt;
  if (json.contains("total") && (!total || *total < *received)) return std::nullopt;
  return ResumeData{*url, *file, *validator, *received, total};
}

}  // namespace installer
