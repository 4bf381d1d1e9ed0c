#include <nlohmann/json.hpp>
#include <string_view>

#include "Platform/Linux/LinuxServices.h"
#include "Platform/Linux/Processes/PrivilegedShell.h"

namespace installer {

namespace {

constexpr std::string_view kHandlerSource =
    "on runCommand(cmd)\n    do shell script cmd with administrator privileges\nend runCommand";
constexpr std::string_view kHandlerName = "runCommand";
constexpr std::string_view kStatementStart = "do shell script \"";
constexpr std::string_view kStatementEnd = "\" with administrator privileges";
constexpr int kNoSuchHandler = -1708;  // "event not handled"

// The text of a string literal without its quotes; absent when the literal ends early or escapes anything
// but a quote or a backslash.
std::optional<std::string> unescaped(std::string_view literal) {
  std::string text;
  for (std::size_t at = 0; at < literal.size(); ++at) {
    if (literal[at] == '"') return std::nullopt;
    if (literal[at] == '\\' && (++at == literal.size() || (literal[at] != '"' && literal[at] != '\\'))) {
      return std::nullopt;
    }
    text += literal[at];
  }
  return text;
}

// The command of the one-statement source; absent when `source` isn't one.
std::optional<std::string> statementCommand(std::string_view source) {
  if (!source.starts_with(kStatementStart)) return std::nullopt;
  source.remove_prefix(kStatementStart.size());
  if (!source.ends_with(kStatementEnd)) return std::nullopt;
  source.remove_suffix(kStatementEnd.size());
  return unescaped(source);
}

// A program's output may be any bytes; the dictionary must be valid UTF-8 for JSON.
Json readableText(const std::string& bytes) {
  return Json::parse(Json(bytes).dump(-1, ' ', false, Json::error_handler_t::replace));
}

Json errorDictionary(int number, const std::string& message) {
  return {{AdministratorScript::kErrorNumberKey, number},
          {"NSAppleScriptErrorMessage", readableText(message)}};
}

class LinuxAdministratorScript : public AdministratorScript {
 public:
  // Without a `statement` this is the script with the handler.
  LinuxAdministratorScript(const AdministratorPrompt& prompt, std::optional<std::string> statement)
      : shell_{prompt}, statement_{std::move(statement)} {}

  Expected<ScriptErrorDictionary, EventFailure> callHandler(const std::string& name,
                                                            const std::string& argument) override {
    if (statement_ || name != kHandlerName)
      return errorDictionary(kNoSuchHandler, "There is no such handler");
    return run(argument);
  }

  // A script with only a handler has nothing to execute; this isn't an error.
  ScriptErrorDictionary execute() override { return statement_ ? run(*statement_) : std::nullopt; }

 private:
  PrivilegedShell shell_;
  std::optional<std::string> statement_;

  ScriptErrorDictionary run(const std::string& command) {
    const auto failed = shell_.run(command);
    if (!failed) return std::nullopt;
    return errorDictionary(failed->dismissed ? kUserCancelled : failed->number, failed->message);
  }
};

}  // namespace

std::unique_ptr<AdministratorScript> LinuxAdministratorScripts::make(const std::string& source) {
  if (source == kHandlerSource) return std::make_unique<LinuxAdministratorScript>(prompt_, std::nullopt);
  auto command = statementCommand(source);
  if (!command) return nullptr;
  return std::make_unique<LinuxAdministratorScript>(prompt_, std::move(command));
}

}  // namespace installer
