// Property lists from untrusted bytes, as plain values.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Bytes.h"
#include "Outcome.h"

namespace lab {

class PropertyList {
 public:
  using Array = std::vector<PropertyList>;
  using Dictionary = std::vector<std::pair<std::string, PropertyList>>;
  // Dates and identifiers of objects are std::monostate; no code reads them.
  using Value =
      std::variant<std::monostate, bool, std::int64_t, double, std::string, Bytes, Array, Dictionary>;

  PropertyList() = default;
  explicit PropertyList(Value value) : value_(std::move(value)) {}

  // Reads XML or binary. Bounded in nesting, in the cost of reading the XML form's texts, and in the number
  // of values of the binary form with all references expanded.
  static Outcome<PropertyList> read(ByteView bytes);

  // The value of this type, or null.
  const std::string* text() const { return std::get_if<std::string>(&value_); }
  const Bytes* data() const { return std::get_if<Bytes>(&value_); }
  const Array* array() const { return std::get_if<Array>(&value_); }
  const Dictionary* dictionary() const { return std::get_if<Dictionary>(&value_); }
  const bool* boolean() const { return std::get_if<bool>(&value_); }
  // The value of an integer or a real.
  std::optional<double> number() const;

  // The first value under `key`, or null when this isn't a dictionary or has no such key.
  const PropertyList* find(std::string_view key) const;
  // The text under `key`; empty when there is none.
  std::string textAt(std::string_view key) const;

 private:
  Value value_;
};

}  // namespace lab
