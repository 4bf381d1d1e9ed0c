#include "support/Attributes.h"

#include <cerrno>
#include <sys/stat.h>
#include <sys/xattr.h>

namespace lab {
namespace {

constexpr std::string_view kUserNamespace = "user.";

std::string onLinux(const std::string& name) {
  return std::string{kUserNamespace} + name;
}

bool isLink(const std::filesystem::path& path) {
  return std::filesystem::symlink_status(path).type() == std::filesystem::file_type::symlink;
}

// Reads a value whose size may change between two calls.
template <class Read>
ssize_t readGrowing(std::string& buffer, Read read) {
  while (true) {
    const ssize_t size = read(nullptr, 0);
    if (size <= 0) return size;
    buffer.resize(static_cast<std::size_t>(size));
    const ssize_t count = read(buffer.data(), buffer.size());
    if (count >= 0 || errno != ERANGE) return count;
  }
}

}  // namespace

OrReason<std::vector<std::string>> attributeNames(const std::filesystem::path& path) {
  std::string list;
  const ssize_t size =
      readGrowing(list, [&](char* to, std::size_t room) { return llistxattr(path.c_str(), to, room); });
  if (size < 0 && errno == ENOTSUP) return std::vector<std::string>{};
  if (size < 0) return becauseOfErrno(path.string());
  std::vector<std::string> names;
  for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
    const std::string name = list.c_str() + at;
    if (name.starts_with(kUserNamespace)) names.push_back(name.substr(kUserNamespace.size()));
    at += name.size() + 1;
  }
  return names;
}

OrReason<std::optional<std::string>> attribute(const std::filesystem::path& path, const std::string& name) {
  std::string value;
  const ssize_t size = readGrowing(value, [&](char* to, std::size_t room) {
    return lgetxattr(path.c_str(), onLinux(name).c_str(), to, room);
  });
  if (size < 0 && (errno == ENODATA || errno == ENOTSUP)) return std::nullopt;
  if (size < 0) return becauseOfErrno(path.string());
  value.resize(static_cast<std::size_t>(size));
  return value;
}

OrReason<> setAttribute(const std::filesystem::path& path, const std::string& name, std::string_view value) {
  if (isLink(path)) return {};
  if (lsetxattr(path.c_str(), onLinux(name).c_str(), value.data(), value.size(), 0) == 0) return {};
  return becauseOfErrno(path.string());
}

OrReason<bool> removeAttribute(const std::filesystem::path& path, const std::string& name) {
  if (isLink(path)) return false;
  if (lremovexattr(path.c_str(), onLinux(name).c_str()) == 0) return true;
  if (errno == ENODATA || errno == ENOTSUP) return false;
  return becauseOfErrno(path.string());
}

bool keepsNoAttributes(const std::filesystem::path& path) {
  return lgetxattr(path.c_str(), "user.kelo.probe", nullptr, 0) < 0 && errno == ENOTSUP;
}

}  // namespace lab
