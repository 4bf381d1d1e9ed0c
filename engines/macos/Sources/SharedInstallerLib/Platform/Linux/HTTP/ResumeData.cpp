#include "Platform/Linux/HTTP/ResumeData.h"

#include <nlohmann/json.hpp>

#include "Base/JSONReader.h"

namespace installer {

namespace {

constexpr const char* kFormat = "kelo-download-1";

}  // namespace

std::string ResumeData::encode() const {
  Json json{{"format", kFormat},
            {"url", url.absoluteString()},
            {"file", partialFile},
            {"validator", validator.text()},
            {"received", received}};
  if (total) json["total"] = *total;
  return json.dump(-1, ' ', true, Json::error_handler_t::replace);
}

std::optional<ResumeData> ResumeData::decode(std::string_view bytes) {
  using namespace JSONReader;
  const auto json = Json::parse(bytes, nullptr, false);
  if (!json.is_object() || string(json, "format") != kFormat) return std::nullopt;
  const auto url = URL::parse(string(json, "url").value_or(""));
  const auto file = string(json, "file");
  const auto validator = Validator::parse(string(json, "validator").value_or(""));
  const auto received = integer(json, "received");
  const auto total = integer(json, "total");
  if (!url || !file || !validator || !received || *received <= 0) return std::nullopt;
  if (json.contains("total") && (!total || *total < *received)) return std::nullopt;
  return ResumeData{*url, *file, *validator, *received, total};
}

}  // namespace installer
