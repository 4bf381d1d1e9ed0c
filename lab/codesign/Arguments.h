// The command line of `codesign`, for the supported options.
#pragma once

#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Outcome.h"
#include "Requirement.h"

namespace lab {

struct CodesignArguments {
  enum class Operation { verify, display, help };

  Operation operation = Operation::verify;
  int verbosity = 0;
  std::optional<Requirement> requirement;
  std::vector<std::filesystem::path> paths;
};

// Parses the arguments after the program's name. A failure is a usage error.
Outcome<CodesignArguments> parseCodesignArguments(std::span<const std::string> arguments);

extern const char* const kCodesignHelp;

}  // namespace lab
