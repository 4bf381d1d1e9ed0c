#include "Base/Path.h"

namespace installer {

namespace {

std::string_view withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return path;
}

}  // namespace

Path joined(std::string_view folder, std::string_view name) {
  Path path{folder};
  while (!name.empty() && name.front() == '/') name.remove_prefix(1);
  if (path.empty() || path.back() != '/') path += '/';
  return path.append(name);
}

std::string lastPathComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  if (path == "/") return "/";
  const auto slash = path.rfind('/');
  return std::string{slash == std::string_view::npos ? path : path.substr(slash + 1)};
}

Path parentFolder(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const auto slash = path.rfind('/');
  if (slash == std::string_view::npos) return {};
  if (slash == 0) return "/";
  return Path{withoutTrailingSlashes(path.substr(0, slash))};
}

bool isPlainFileName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos &&
         name.find('\0') == std::string_view::npos;
}

}  // namespace installer
