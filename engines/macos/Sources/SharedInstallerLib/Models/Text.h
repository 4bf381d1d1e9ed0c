// Small operations on text that several rooms need.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace installer {

// ASCII letters only; all other bytes stay.
std::string lowercased(std::string_view text);

// Without blanks, tabs and line breaks at both ends.
std::string trimmed(std::string_view text);

// As a list stands in log lines: ["a", "b"], and [] when empty.
std::string listText(const std::vector<std::string>& items);

// A number of seconds or per cent as it stands in log lines: always with a decimal point, "5.0" or "0.25".
std::string doubleText(double value);

}  // namespace installer
