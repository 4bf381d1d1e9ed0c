#include "Arguments.h"

#include <algorithm>
#include <cctype>

#include "MappedFile.h"
#include "RequirementBlob.h"
#include "RequirementText.h"
#include "SuperBlob.h"

namespace lab {

const char* const kCodesignHelp =
    R"(codesign --verify [--strict] [--deep] [-v...] [-R REQUIREMENT] PATH...
codesign -d [-v...] PATH...

Verifies or shows the code signature of Mach-O files, bundles, disk images and plain files.
Verification is always strict and always includes nested code.

  -v, -vv, --verbose, --verbose=LEVEL   say more; -v alone means --verify
  -R REQUIREMENT       =TEXT for requirement text, else the name of a file with text or a compiled requirement;
                       also as two arguments, -R =TEXT
  --strict, --deep     accepted without an effect

The platform's roots are trusted. A test authority is trusted only if linux_host.json beside this program, or
in the folder above it, names one; the output then has a line about it.

Exit status: 0 valid, 1 invalid or not signed, 2 usage, 3 valid but a requirement isn't met.
)";

namespace {

Outcome<Requirement> readRequirement(const std::string& value) {
  if (value.starts_with('=')) {
    auto parsed = parseRequirement(std::string_view(value).substr(1));
    return parsed ? parsed : handOn(parsed, "invalid requirement");
  }
  const auto file = MappedFile::open(value, Links::follow);
  if (!file) return handOn(file, "invalid requirement");
  const bool isCompiled = be32(file->bytes(), 0) == kRequirementMagic;
  auto read = isCompiled ? readRequirementBlob(file->bytes()) : parseRequirement(textOf(file->bytes()));
  return read ? read : handOn(read, "invalid requirement");
}

class ArgumentReader {
 public:
  explicit ArgumentReader(std::span<const std::string> arguments) : arguments_(arguments) {}

  Outcome<CodesignArguments> read() {
    for (; at_ < arguments_.size(); ++at_) {
      const std::string& argument = arguments_[at_];
      const bool isPath = onlyPaths_ || !argument.starts_with('-') || argument == "-";
      if (isPath) {
        result_.paths.emplace_back(argument);
        continue;
      }
      if (auto taken = option(argument); !taken) return handOn(taken);
    }
    return finish();
  }

 private:
  Outcome<void> option(const std::string& argument) {
    using Operation = CodesignArguments::Operation;
    if (argument == "--") {
      onlyPaths_ = true;
    } else if (argument == "--help" || argument == "-h") {
      return choose(Operation::help);
    } else if (argument == "--verify") {
      return choose(Operation::verify);
    } else if (argument == "--display" || argument == "-d") {
      return choose(Operation::display);
    } else if (argument == "--strict" || argument.starts_with("--strict=") || argument == "--deep") {
      // Ignored: every verification is strict and deep.
    } else if (argument == "--verbose") {
      ++result_.verbosity;
    } else if (argument.starts_with("--verbose=") && argument.size() == 11 &&
               std::isdigit(static_cast<unsigned char>(argument.back())) != 0) {
      result_.verbosity = argument.back() - '0';
    } else if (isBundleOfFlags(argument)) {
      return flags(argument);
    } else if (argument.starts_with("-R") || argument.starts_with("--test-requirement")) {
      return requirement(argument);
    } else {
      return refuse("unrecognized option {}", printable(argument));
    }
    return {};
  }

  // "-v", "-vvv", "-dv", "-dvv".
  static bool isBundleOfFlags(const std::string& argument) {
    return argument.size() > 1 && argument.find_first_not_of("dv", 1) == std::string::npos;
  }

  Outcome<void> flags(const std::string& argument) {
    const auto count = static_cast<int>(std::ranges::count(argument, 'v'));
    result_.verbosity += count;
    sawVerbose_ = sawVerbose_ || count > 0;
    if (argument.find('d') == std::string::npos) return {};
    return choose(CodesignArguments::Operation::display);
  }

  // Two operations are refused: a display must not be mistaken for a verification.
  Outcome<void> choose(CodesignArguments::Operation operation) {
    if (operation_ && *operation_ != operation) return refuse("more than one operation");
    operation_ = operation;
    return {};
  }

  Outcome<void> requirement(const std::string& argument) {
    const bool isLong = argument.starts_with("--");
    std::string value = argument.substr(isLong ? std::string_view("--test-requirement").size() : 2);
    if (isLong && !value.empty()) {
      if (!value.starts_with('=')) return refuse("unrecognized option {}", printable(argument));
      value.erase(0, 1);
    }
    if (value.empty()) {
      if (++at_ >= arguments_.size()) return refuse("{} needs a requirement", argument);
      value = arguments_[at_];
    }
    auto read = readRequirement(value);
    if (!read) return handOn(read);
    if (result_.requirement) return refuse("more than one requirement");
    result_.requirement = std::move(*read);
    return {};
  }

  Outcome<CodesignArguments> finish() {
    if (!operation_ && !sawVerbose_) return refuse("no operation: use --verify or -d");
    result_.operation = operation_.value_or(CodesignArguments::Operation::verify);
    if (result_.operation != CodesignArguments::Operation::help && result_.paths.empty())
      return refuse("no path given");
    return std::move(result_);
  }

  std::span<const std::string> arguments_;
  std::size_t at_ = 0;
  bool onlyPaths_ = false;
  bool sawVerbose_ = false;
  std::optional<CodesignArguments::Operation> operation_;
  CodesignArguments result_;
};

}  // namespace

Outcome<CodesignArguments> parseCodesignArguments(std::span<const std::string> arguments) {
  return ArgumentReader(arguments).read();
}

}  // namespace lab
