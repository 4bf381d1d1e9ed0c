// The records inside events, each as its own JSON object, and the marks of presence.
// For the envelope only: other code has no business with JSON.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

#include "Engine/EngineEvent.h"

namespace installer::EventRecords {

// Keeps the order in which keys are put, for people who read a transcript. Readers must not rely on it.
using Object = nlohmann::ordered_json;

Object encode(const CatalogAppEvent& app);
Object encode(const EngineEvent::UpdateCheckEntry& entry);
// As it stands inside a `done`: with its own version and type, and without keys for what is absent.
Object encode(const AppResultEvent& result);
Object encode(const InstallerRetirementEvent& retirement);
Object encode(const ReleaseNotes& notes);
template <class Plain>
Object encode(const Plain& value) {
  return value;
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

}  // namespace installer::EventRecords
