#include "Bundle.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <nlohmann/json.hpp>

#include "MappedFile.h"
#include "PropertyList.h"

namespace lab {

namespace {

namespace fs = std::filesystem;

fs::file_type typeOf(const fs::path& path) {
  std::error_code error;
  return fs::symlink_status(path, error).type();
}

bool isFolder(const fs::path& path) {
  return typeOf(path) == fs::file_type::directory;
}

bool isFile(const fs::path& path) {
  return typeOf(path) == fs::file_type::regular;
}

bool isPlainName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

std::string linkText(const fs::path& path) {
  std::error_code error;
  return fs::read_symlink(path, error).string();
}

// True for a file that the Finder or the shell makes beside the sealed parts. Never a program.
bool isPlainCompanion(const fs::path& entry, std::initializer_list<std::string_view> names) {
  std::error_code error;
  const auto status = fs::symlink_status(entry, error);
  constexpr fs::perms runs = fs::perms::owner_exec | fs::perms::group_exec | fs::perms::others_exec;
  return std::ranges::find(names, entry.filename().string()) != names.end() &&
         status.type() == fs::file_type::regular && (status.permissions() & runs) == fs::perms::none;
}

Outcome<std::vector<fs::path>> entriesOf(const fs::path& folder) {
  std::error_code error;
  std::vector<fs::path> entries;
  for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error))
    entries.push_back(at->path());
  if (error)
    return std::unexpected(
        Failure{fmt::format("can't list {}: {}", printable(folder.string()), error.message()),
                FailureKind::unreadable});
  std::ranges::sort(entries);
  return entries;
}

Outcome<void> readVersions(Bundle& bundle) {
  const fs::path versions = bundle.root / "Versions";
  std::string current = linkText(versions / "Current");
  if (current.starts_with("./")) current.erase(0, 2);
  if (!isPlainName(current) || !isFolder(versions / current))
    return refuse("framework's Versions/Current isn't a link to a version");
  bundle.base = versions / current;
  const auto entries = entriesOf(versions);
  if (!entries) return handOn(entries);
  for (const fs::path& entry : *entries) {
    if (entry.filename() == "Current" || entry == bundle.base) continue;
    if (isPlainCompanion(entry, {".DS_Store"})) continue;
    if (!isFolder(entry))
      return refuse("unsealed contents beside the framework's versions: {}",
                    printable(entry.filename().string()));
    bundle.otherVersions.push_back(entry);
  }
  return {};
}

Outcome<void> readInfoPlist(Bundle& bundle) {
  const bool inResources = bundle.shape == Bundle::Shape::versioned || !isFile(bundle.base / "Info.plist");
  bundle.infoPlist = bundle.base / (inResources ? "Resources/Info.plist" : "Info.plist");
  const auto file = MappedFile::open(bundle.infoPlist);
  if (!file) return refuse("not a bundle (no readable Info.plist)");
  const auto info = readPropertyList(file->bytes());
  if (!info || !info->is_object()) return refuse("the bundle's Info.plist can't be parsed");
  bundle.mainExecutable = bundle.infoPlist;
  if (installer::JSONReader::member(*info, "CFBundleExecutable") == nullptr) return {};
  const auto name = installer::JSONReader::string(*info, "CFBundleExecutable").value_or("");
  if (!isPlainName(name)) return refuse("the bundle's Info.plist names no usable main executable");
  bundle.mainExecutable = bundle.base / (bundle.shape == Bundle::Shape::contents ? "MacOS" : "") / name;
  if (bundle.shape == Bundle::Shape::contents && !isFolder(bundle.base / "MacOS"))
    return refuse("the bundle has no folder MacOS");
  if (!isFile(bundle.mainExecutable))
    return refuse("the bundle's main executable {} is missing or not a file", printable(name));
  return {};
}

// True for a framework's link to the item of the same name in the current version.
bool leadsToNamesake(const Bundle& bundle, const fs::path& entry) {
  if (bundle.shape != Bundle::Shape::versioned) return false;
  std::string target = linkText(entry);
  if (target.starts_with("./")) target.erase(0, 2);
  const std::string name = entry.filename().string();
  return target == "Versions/Current/" + name ||
         target == "Versions/" + bundle.base.filename().string() + "/" + name;
}

Outcome<void> checkRoot(const Bundle& bundle) {
  const auto entries = entriesOf(bundle.root);
  if (!entries) return handOn(entries);
  for (const fs::path& entry : *entries) {
    const std::string name = entry.filename().string();
    const bool isFramework = bundle.shape == Bundle::Shape::versioned;
    if (name == (isFramework ? "Versions" : "Contents")) continue;
    if (isFramework && isPlainCompanion(entry, {".DS_Store", "module.map"})) continue;
    if (!isFramework && isPlainCompanion(entry, {".DS_Store", "Icon\r", ".LSOverride"})) continue;
    if (!leadsToNamesake(bundle, entry))
      return refuse("unsealed contents in the bundle's root: {}", printable(name));
  }
  return {};
}

Outcome<void> checkSignatureFolder(const Bundle& bundle) {
  static constexpr std::array<std::string_view, 10> kKnown{
      "CodeDirectory",      "CodeRequirements",   "CodeSignature",      "CodeResources",
      "CodeEntitlements",   "CodeRequirements-1", "CodeRequirements-2", "CodeRequirements-3",
      "CodeRequirements-4", "CodeRequirements-5"};
  if (!isFolder(bundle.signatureFolder)) return {};  // the missing files are reported later
  const auto entries = entriesOf(bundle.signatureFolder);
  if (!entries) return handOn(entries);
  for (const fs::path& entry : *entries) {
    const std::string name = entry.filename().string();
    if (!isFile(entry) || std::ranges::find(kKnown, name) == kKnown.end())
      return refuse("stray file among the signature's: {}", printable(name));
  }
  return {};
}

}  // namespace

Outcome<Bundle> Bundle::read(const fs::path& root) {
  Bundle bundle;
  bundle.root = root;
  bundle.base = root;
  if (isFolder(root / "Contents")) {
    bundle.shape = Shape::contents;
    bundle.base = root / "Contents";
  } else if (isFolder(root / "Versions")) {
    bundle.shape = Shape::versioned;
    if (auto read = readVersions(bundle); !read) return handOn(read);
  }
  bundle.signatureFolder = bundle.base / "_CodeSignature";
  if (auto read = readInfoPlist(bundle); !read) return handOn(read);
  return bundle;
}

Outcome<void> Bundle::checkSurroundings() const {
  if (shape != Shape::flat) {
    if (auto clean = checkRoot(*this); !clean) return handOn(clean);
  }
  return checkSignatureFolder(*this);
}

std::string Bundle::relative(const fs::path& path) const {
  return path.lexically_relative(base).generic_string();
}

std::optional<Bundle> bundleOfMainExecutable(const fs::path& file) {
  const fs::path folder = file.parent_path();
  const fs::path above = folder.parent_path();
  std::vector<fs::path> roots;
  if (folder.filename() == "MacOS" && above.filename() == "Contents") roots = {above.parent_path()};
  // A version of a framework that isn't the current one is a separate bundle.
  if (above.filename() == "Versions") roots = {above.parent_path(), folder};
  if (folder.has_extension()) roots.push_back(folder);
  for (const fs::path& root : roots) {
    auto bundle = Bundle::read(root);
    if (bundle && bundle->mainExecutable == file) return *bundle;
  }
  return std::nullopt;
}

}  // namespace lab
