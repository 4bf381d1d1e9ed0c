#include "Base/POSIX/ApplicationRegistry.h"

#include <cerrno>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "Base/JSONReader.h"
#include "Base/POSIX/ItemLock.h"
#include "Base/POSIX/WholeFile.h"

namespace installer {

namespace {

std::unexpected<Error> refused(const Path& path, int number) {
  return failure(ErrorDomain::posix, number, path + ": " + std::generic_category().message(number));
}

Path withoutTrailingSlashes(Path path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

std::optional<RegisteredApplication> entryOf(const Json& value) {
  const auto path = JSONReader::string(value, "path");
  const auto identifier = JSONReader::string(value, "identifier");
  if (!path || !identifier) return std::nullopt;
  return RegisteredApplication{*path, *identifier};
}

std::string textOf(const std::vector<RegisteredApplication>& applications) {
  Json list = Json::array();
  for (const auto& [path, identifier] : applications) {
    list.push_back({{"path", path}, {"identifier", identifier}});
  }
  // JSON can't hold a name that isn't UTF-8: it is written with replacement characters and is then a stale
  // entry.
  return Json{{"applications", list}}.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
}

template <class Change>
Result<> changeUnderLock(const ApplicationRegistry& registry, const Path& file, Change change) {
  std::error_code made;
  const Path folder = parentFolder(file);
  std::filesystem::create_directories(folder, made);
  const auto lock = ItemLock::take(folder);
  if (!lock) return refused(file, made ? made.value() : errno);
  auto applications = registry.applications();
  change(applications);
  return replaceFile(file, textOf(applications));
}

}  // namespace

std::vector<RegisteredApplication> ApplicationRegistry::applications() const {
  const auto text = readWholeFile(file_);
  const Json root = text ? JSONReader::parse(*text).value_or(nullptr) : Json{};
  std::vector<RegisteredApplication> found;
  const Json* const entries = JSONReader::member(root, "applications");
  if (entries == nullptr || !entries->is_array()) return found;
  for (const Json& value : *entries) {
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
