#include "Platform/Linux/ApplicationRegistry.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace installer {

namespace {

using Json = nlohmann::json;

std::unexpected<Error> refused(const Path& path, int number) {
  return failure(ErrorDomain::posix, number, path + ": " + std::generic_category().message(number));
}

Path withoutTrailingSlashes(Path path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

// Held from making to destruction, among threads and processes.
class Lock {
 public:
  explicit Lock(const Path& file)
      : descriptor_{::open((file + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666)} {
    while (descriptor_ >= 0 && ::flock(descriptor_, LOCK_EX) != 0) {
      if (errno != EINTR) return;
    }
    held_ = descriptor_ >= 0;
  }
  ~Lock() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
  explicit operator bool() const { return held_; }

 private:
  int descriptor_;
  bool held_ = false;
};

std::optional<RegisteredApplication> entryOf(const Json& value) {
  if (!value.is_object()) return std::nullopt;
  const auto path = value.find("path");
  const auto identifier = value.find("identifier");
  if (path == value.end() || identifier == value.end()) return std::nullopt;
  if (!path->is_string() || !identifier->is_string()) return std::nullopt;
  return RegisteredApplication{path->get<std::string>(), identifier->get<std::string>()};
}

std::string textOf(const std::vector<RegisteredApplication>& applications) {
  Json list = Json::array();
  for (const auto& [path, identifier] : applications) {
    list.push_back({{"path", path}, {"identifier", identifier}});
  }
  // A name that isn't UTF-8 can't be told in JSON: it is written with replacement characters and then leads
  // nowhere, like any stale entry.
  return Json{{"applications", list}}.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
}

// Written aside and renamed, under the lock.
Result<> replaceFile(const Path& file, const std::string& text) {
  const Path aside = file + ".new";
  std::ofstream stream{aside, std::ios::binary | std::ios::trunc};
  stream << text;
  stream.close();
  if (!stream || ::rename(aside.c_str(), file.c_str()) != 0) return refused(file, errno);
  return {};
}

template <class Change>
Result<> changeUnderLock(const ApplicationRegistry& registry, const Path& file, Change change) {
  std::error_code made;
  std::filesystem::create_directories(std::filesystem::path{file}.parent_path(), made);
  const Lock lock{file};
  if (!lock) return refused(file, made ? made.value() : errno);
  auto applications = registry.applications();
  change(applications);
  return replaceFile(file, textOf(applications));
}

}  // namespace

std::vector<RegisteredApplication> ApplicationRegistry::applications() const {
  std::ifstream stream{file_, std::ios::binary};
  std::ostringstream text;
  text << stream.rdbuf();
  const Json root = Json::parse(std::move(text).str(), nullptr, false);
  std::vector<RegisteredApplication> found;
  if (!root.is_object() || !root.contains("applications") || !root["applications"].is_array()) return found;
  for (const Json& value : root["applications"]) {
    if (auto entry = entryOf(value)) found.push_back(*std::move(entry));
  }
  return found;
}

Result<> ApplicationRegistry::add(const RegisteredApplication& application) {
  if (!application.path.starts_with('/')) return refused(application.path, EINVAL);
  const RegisteredApplication entry{withoutTrailingSlashes(application.path), application.identifier};
  return changeUnderLock(*this, file_, [&](auto& applications) {
    std::erase_if(applications, [&](const auto& known) { return known.path == entry.path; });
    applications.push_back(entry);
  });
}

Result<> ApplicationRegistry::remove(const Path& path) {
  if (::access(file_.c_str(), F_OK) != 0) return {};
  return changeUnderLock(*this, file_, [known = withoutTrailingSlashes(path)](auto& applications) {
    std::erase_if(applications, [&](const auto& entry) { return entry.path == known; });
  });
}

}  // namespace installer
