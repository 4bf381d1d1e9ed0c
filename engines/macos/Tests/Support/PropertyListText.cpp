#include "Support/PropertyListText.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace installer::test {

namespace {

std::string escaped(const std::string& text) {
  std::string result;
  for (const char character : text) {
    switch (character) {
      case '&': result += "&amp;"; break;
      case '<': result += "&lt;"; break;
      case '>': result += "&gt;"; break;
      default: result += character;
    }
  }
  return result;
}

std::string element(const Json& value) {
  if (value.is_string()) return "<string>" + escaped(value.get<std::string>()) + "</string>\n";
  if (value.is_boolean()) return value.get<bool>() ? "<true/>\n" : "<false/>\n";
  if (value.is_number_integer()) return "<integer>" + value.dump() + "</integer>\n";
  if (value.is_number_float()) return "<real>" + value.dump() + "</real>\n";
  std::string text;
  if (value.is_array()) {
    for (const auto& item : value) text += element(item);
    return "<array>\n" + text + "</array>\n";
  }
  if (value.is_object()) {
    for (const auto& [key, item] : value.items()) text += "<key>" + escaped(key) + "</key>\n" + element(item);
    return "<dict>\n" + text + "</dict>\n";
  }
  ADD_FAILURE() << "not a property list value: " << value.dump();
  return text;
}

}  // namespace

std::string propertyListText(const Json& value) {
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
)" + element(value) +
         "</plist>\n";
}

}  // namespace installer::test
