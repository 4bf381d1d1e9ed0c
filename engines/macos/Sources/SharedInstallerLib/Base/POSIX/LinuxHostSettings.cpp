#include "Base/POSIX/LinuxHostSettings.h"

#include <climits>
#include <fmt/format.h>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <pwd.h>
#include <unistd.h>

#include "Base/JSONReader.h"
#include "Base/POSIX/WholeFile.h"

namespace installer {

namespace {

std::unexpected<Error> malformed(std::string_view reason) {
  return failure(ErrorDomain::cocoa, CocoaError::fileReadCorrupt,
                 fmt::format("{}: {}", LinuxHostSettings::kFileName, reason));
}

// The home folder from the user database. The environment isn't used, because it could name any folder.
Path homeFolder() {
  const passwd* const user = ::getpwuid(::getuid());
  return user != nullptr && user->pw_dir != nullptr ? user->pw_dir : "/";
}

constexpr double kShortestTimeout = 0.001;  // seconds
constexpr double kLongestTimeout = 86'400.0;

// Reads the keys of one object and records the first fault.
class Reader {
 public:
  Reader(const Json& object, std::string_view place, const Path& folder)
      : object_{object}, place_{place}, folder_{folder} {
    if (!object.is_object()) complain(place.empty() ? "it isn't a JSON object" : "it isn't an object");
  }

  // A key outside `known` is a fault, because it is probably a misspelled one.
  void allow(std::initializer_list<std::string_view> known) {
    if (!object_.is_object()) return;
    for (const auto& [key, value] : object_.items()) {
      if (std::find(known.begin(), known.end(), key) == known.end()) complain("the key is unknown", key);
    }
  }

  std::optional<std::string> text(const std::string& key) {
    const Json* const value = find(key);
    if (value == nullptr) return std::nullopt;
    if (value->is_string() && !value->get_ref<const std::string&>().empty()) return value->get<std::string>();
    complain("it must be a text that isn't empty", key);
    return std::nullopt;
  }

  std::optional<Path> path(const std::string& key) {
    auto value = text(key);
    if (!value) return std::nullopt;
    if (value->find('\0') != std::string::npos) complain("it isn't a path", key);
    return absolute(*std::move(value));
  }

  std::optional<std::chrono::duration<double>> seconds(const std::string& key) {
    const Json* const value = find(key);
    if (value == nullptr) return std::nullopt;
    const double number = value->is_number() ? value->get<double>() : 0.0;
    if (number > kLongestTimeout || number < kShortestTimeout) {
      complain("it must be a number of seconds, from 0.001 to 86400", key);
      return std::nullopt;
    }
    return std::chrono::duration<double>{number};
  }

  std::map<std::string, std::string> texts(const std::string& key) {
    std::map<std::string, std::string> found;
    const Json* const value = find(key);
    if (value == nullptr) return found;
    if (!value->is_object()) complain("it must be an object of texts", key);
    if (!value->is_object()) return found;
    for (const auto& [name, target] : value->items()) {
      if (!target.is_string()) complain("it must be an object of texts", key);
      if (target.is_string()) found[name] = target.get<std::string>();
    }
    return found;
  }

  std::optional<std::vector<std::string>> list(const std::string& key) {
    const Json* const value = find(key);
    if (value == nullptr) return std::nullopt;
    std::vector<std::string> found;
    if (value->is_array()) {
      for (const Json& item : *value) {
        if (item.is_string()) found.push_back(item.get<std::string>());
      }
    }
    if (!value->is_array() || found.size() != value->size() || found.empty()) {
      complain("it must be a list of texts that isn't empty", key);
    }
    return found;
  }

  const Json* find(const std::string& key) const {
    if (!object_.is_object()) return nullptr;
    const auto entry = object_.find(key);
    return entry == object_.end() ? nullptr : &*entry;
  }

  Path absolute(Path path) const {
    if (!path.starts_with('/')) path = joined(folder_, path);
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
  }

  void complain(std::string_view reason, std::string_view key = {}) {
    if (complaint_) return;
    complaint_ = place_.empty() ? fmt::format("{}{}{}", key, key.empty() ? "" : ": ", reason)
                                : fmt::format("{}{}{}: {}", place_, key.empty() ? "" : ".", key, reason);
  }

  const std::optional<std::string>& complaint() const { return complaint_; }

 private:
  const Json& object_;
  std::string place_;
  const Path& folder_;
  std::optional<std::string> complaint_;
};

// Reads one of the three forms of `administrator`.
Result<AdministratorPrompt> readPrompt(const Json& value, const Path& folder) {
  Reader reader{value, "administrator", folder};
  reader.allow({"prompt", "askpass", "command"});
  AdministratorPrompt prompt;
  const auto name = reader.text("prompt");
  const auto askpass = reader.path("askpass");
  if (auto command = reader.list("command"); command && !command->empty()) {
    if (name || askpass) reader.complain("it excludes the other keys", "command");
    prompt.command = *std::move(command);
    prompt.command.front() = reader.absolute(prompt.command.front());
    prompt.asksRootToo = true;
  } else if (name == "sudo") {
    if (!askpass) reader.complain("sudo needs one", "askpass");
    prompt.command = {"/usr/bin/sudo", "-A"};
    prompt.askpass = askpass.value_or("");
  } else if (name != "pkexec") {
    reader.complain("it must be \"pkexec\" or \"sudo\"", "prompt");
  } else if (askpass) {
    reader.complain("pkexec doesn't use one", "askpass");
  }
  if (reader.complaint()) return malformed(*reader.complaint());
  return prompt;
}

}  // namespace

LinuxHostSettings LinuxHostSettings::defaults(const Path& resources) {
  LinuxHostSettings settings;
  settings.root = joined(homeFolder(), ".local/share/Kelo-Desk-Installer");
  settings.programs = joined(resources, "programs");
  return settings;
}

Result<LinuxHostSettings> LinuxHostSettings::parse(std::string_view text, const Path& resources) {
  const Json root = Json::parse(text, nullptr, false);
  if (root.is_discarded()) return malformed("it isn't JSON");
  Reader reader{root, "", resources};
  // Only the lab's programs read `testAuthority` and `timestampAuthority`.
  reader.allow({"root", "programs", "extraCertificateAuthority", "hostAddresses", "requestTimeout",
                "administrator", "testAuthority", "timestampAuthority"});
  LinuxHostSettings settings = defaults(resources);
  if (auto path = reader.path("root")) settings.root = *std::move(path);
  if (auto path = reader.path("programs")) settings.programs = *std::move(path);
  settings.extraCertificateAuthority = reader.path("extraCertificateAuthority");
  settings.hostAddresses = reader.texts("hostAddresses");
  if (const auto timeout = reader.seconds("requestTimeout")) settings.requestTimeout = *timeout;
  if (reader.complaint()) return malformed(*reader.complaint());
  if (const Json* const administrator = reader.find("administrator")) {
    auto prompt = readPrompt(*administrator, resources);
    if (!prompt) return handOn(prompt);
    settings.administrator = *std::move(prompt);
  }
  return settings;
}

Result<LinuxHostSettings> LinuxHostSettings::read(const Path& resources) {
  constexpr std::size_t maximumBytes = std::size_t{1} << 20U;
  const auto text = readWholeFile(joined(resources, kFileName), maximumBytes);
  if (text) return parse(*text, resources);
  if (text.error().is(ErrorDomain::cocoa, CocoaError::fileReadNoSuchFile)) return defaults(resources);
  return handOn(text);
}

Path executablePath() {
  std::string path(PATH_MAX, '\0');
  const auto length = ::readlink("/proc/self/exe", path.data(), path.size());
  path.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  return path;
}

}  // namespace installer
