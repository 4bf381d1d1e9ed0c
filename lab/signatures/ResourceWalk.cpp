#include "ResourceWalk.h"

#include <algorithm>
#include <unordered_set>

#include "SealedContents.h"
#include "support/Attributes.h"

namespace lab {

namespace {

namespace fs = std::filesystem;

constexpr int kDeepestFolder = 64;

class ResourceWalk {
 public:
  ResourceWalk(const ResourceScope& scope, const NestedCheck& checkNested)
      : scope_(&scope),
        bundle_(scope.bundle),
        levelsAboveBase_(levelsBetween(scope.outermost().root, scope.bundle->base)),
        resources_(scope.resources),
        checkNested_(&checkNested),
        mainExecutable_(bundle_->relative(bundle_->mainExecutable)) {}

  Outcome<void> run() {
    const auto walked = folder(bundle_->base, "", 0);
    // These files come before the end of the walk, so their failures are reported first.
    if (auto intact = contents_.check(); !intact) return handOn(intact);
    if (!walked) return handOn(walked);
    for (const auto& [path, seal] : resources_->seals()) {
      if (!seal.optional && !met_.contains(path)) missing_.push_back(path);
    }
    if (!missing_.empty())
      return refuse("a sealed resource is missing: {}", printable(*std::ranges::min_element(missing_)));
    if (strayLink_.empty()) return {};
    return refuse("a link's target isn't sealed: {}", printable(strayLink_));
  }

 private:
  Outcome<void> folder(const fs::path& path, const std::string& prefix, int depth) {
    if (depth > kDeepestFolder) return refuse("the bundle's folders are nested too deeply");
    std::error_code error;
    std::vector<std::string> names;
    for (fs::directory_iterator at(path, error), end; !error && at != end; at.increment(error))
      names.push_back(at->path().filename().string());
    if (error)
      return std::unexpected(
          Failure{fmt::format("can't list {}: {}", printable(path.string()), error.message()),
                  FailureKind::unreadable});
    std::ranges::sort(names);
    for (const std::string& name : names) {
      const std::string relative = prefix + name;
      if (auto checked = entry(path / name, relative, depth); !checked) return handOn(checked);
    }
    return {};
  }

  Outcome<void> entry(const fs::path& path, const std::string& relative, int depth) {
    std::error_code error;
    const fs::file_type type = fs::symlink_status(path, error).type();
    if (relative == "_CodeSignature" && type == fs::file_type::directory) return {};
    if (relative == "CodeResources") return ticket(path, type);
    if (relative == "_MASReceipt") return receipt(path, type);
    if (relative == mainExecutable_) return {};  // sealed by its own pages
    // A special slot seals it; a framework's Info.plist is a resource too and usually also has a seal.
    if (path == bundle_->infoPlist && !resources_->seals().contains(relative)) return {};
    switch (type) {
      case fs::file_type::directory: return directory(path, relative, depth);
      case fs::file_type::regular: return file(path, relative);
      case fs::file_type::symlink: return link(path, relative, depth);
      default: return refuse("a resource is neither file, folder nor link: {}", printable(relative));
    }
  }

  // Checks the stapled ticket, or the link of older tools.
  static Outcome<void> ticket(const fs::path& path, fs::file_type type) {
    if (type == fs::file_type::regular) return {};
    std::error_code error;
    if (type == fs::file_type::symlink && fs::read_symlink(path, error) == "_CodeSignature/CodeResources")
      return {};
    return refuse("CodeResources is neither a stapled ticket nor the link to the seals");
  }

  static Outcome<void> receipt(const fs::path& path, fs::file_type type) {
    if (type != fs::file_type::directory) return refuse("_MASReceipt isn't a folder");
    std::error_code error;
    for (fs::directory_iterator at(path, error), end; !error && at != end; at.increment(error)) {
      const bool isReceipt =
          at->path().filename() == "receipt" && at->symlink_status(error).type() == fs::file_type::regular;
      if (!isReceipt)
        return refuse("unsealed contents in _MASReceipt: {}", printable(at->path().filename().string()));
    }
    return {};
  }

  Outcome<void> directory(const fs::path& path, const std::string& relative, int depth) {
    const ResourceRule* rule = resources_->ruleFor(relative);
    const bool hasDot = path.filename().string().find('.') != std::string::npos;
    if (rule == nullptr || !rule->nested || !hasDot) return folder(path, relative + "/", depth + 1);
    const ResourceSeal* seal = meet(relative);
    if (seal == nullptr) return refuse("nested code has been added: {}", printable(relative));
    if (seal->kind != ResourceSeal::Kind::nested)
      return refuse("nested code is sealed as a file or link: {}", printable(relative));
    return nested(path, relative, *seal);
  }

  Outcome<void> file(const fs::path& path, const std::string& relative) {
    const ResourceSeal* seal = meet(relative);
    if (seal == nullptr && isOmitted(relative)) return {};
    if (seal == nullptr) return refuse("a file has been added: {}", printable(relative));
    if (seal->kind == ResourceSeal::Kind::nested) return nested(path, relative, *seal);
    if (seal->kind != ResourceSeal::Kind::file)
      return refuse("a sealed link has become a file: {}", printable(relative));
    if (auto plain = checkSideband(path); !plain) return handOn(plain);
    contents_.add(path, relative, *seal);
    return {};
  }

  bool isOmitted(const std::string& relative) const {
    const ResourceRule* rule = resources_->ruleFor(relative);
    return rule != nullptr && rule->omit && mayBeOmitted(relative);
  }

  Outcome<void> link(const fs::path& path, const std::string& relative, int depth) {
    const ResourceSeal* seal = meet(relative);
    if (seal == nullptr) return refuse("a link has been added: {}", printable(relative));
    if (seal->kind != ResourceSeal::Kind::symlink)
      return refuse("a sealed file has become a link: {}", printable(relative));
    std::error_code error;
    const std::string target = fs::read_symlink(path, error).string();
    if (canonicalName(target) != canonicalName(seal->target))
      return refuse("a sealed link has been changed: {}", printable(relative));
    if (!staysInside(target, depth))
      return refuse("a link points out of the bundle: {}", printable(relative));
    if (strayLink_.empty() && !target.starts_with('/') && !leadsToSealed(path.parent_path(), target))
      strayLink_ = relative;
    return {};
  }

  bool leadsToSealed(const fs::path& folder, const std::string& target) const {
    std::error_code error;
    fs::path real = fs::canonical(folder / target, error);
    if (error)
      real = fs::canonical(folder / canonicalName(target), error);  // the names on disk may be composed
    if (error) return false;
    for (const ResourceScope* scope = scope_; scope != nullptr; scope = scope->around) {
      const fs::path within = real.lexically_relative(scope->bundle->base);
      if (!within.empty() && *within.begin() != "..") return isSealed(*scope, within);
    }
    return false;
  }

  static bool isSealed(const ResourceScope& scope, const fs::path& within) {
    if (within == ".") return true;
    const fs::path top = *within.begin();
    if (top == "_CodeSignature" || top == "CodeResources" || top == "_MASReceipt") return false;
    const ResourceRule* rule = scope.resources->ruleFor(within.string());
    return rule != nullptr && !rule->omit;
  }

  // True when the target has ".." only at its beginning and not above the outermost bundle's root. Every link
  // of that bundle is checked, so such a link can't leave it through another link.
  bool staysInside(const std::string& target, int depth) const {
    if (target.starts_with('/')) {
      const bool isSystems = target.starts_with("/System/") || target.starts_with("/Library/");
      return isSystems && ("/" + target + "/").find("/../") == std::string::npos;
    }
    int climbable = depth + levelsAboveBase_;
    bool climbing = true;
    for (const fs::path& part : fs::path(target)) {
      if (part == "..") {
        if (!climbing || --climbable < 0) return false;
      } else if (part != ".") {
        climbing = false;
      }
    }
    return true;
  }

  static int levelsBetween(const fs::path& outermost, const fs::path& base) {
    if (base == outermost) return 0;
    const fs::path between = base.lexically_relative(outermost);
    return static_cast<int>(std::distance(between.begin(), between.end()));
  }

  Outcome<void> nested(const fs::path& path, const std::string& relative, const ResourceSeal& seal) {
    auto checked = (*checkNested_)(path, seal);
    return checked ? checked : handOn(checked, "nested code " + printable(relative));
  }

  // The seal of an existing path, or null.
  const ResourceSeal* meet(const std::string& relative) {
    const auto found = resources_->seals().find(canonicalName(relative));
    if (found == resources_->seals().end()) return nullptr;
    met_.insert(found->first);
    return &found->second;
  }

  const ResourceScope* scope_;
  const Bundle* bundle_;
  int levelsAboveBase_;  // from the outermost bundle's root to this one's base
  const CodeResources* resources_;
  const NestedCheck* checkNested_;
  std::string mainExecutable_;
  std::unordered_set<std::string> met_;
  SealedContents contents_;
  std::vector<std::string> missing_;
  // The first link without a sealed target. Reported last, because a missing item can be its cause.
  std::string strayLink_;
};

}  // namespace

Outcome<void> checkResources(const ResourceScope& scope, const NestedCheck& checkNested) {
  return ResourceWalk(scope, checkNested).run();
}

Outcome<void> checkSideband(const fs::path& file) {
  // Most files have no attributes, so one call is usually enough.
  if (const auto names = attributeNames(file); names && names->empty()) return {};
  for (const char* name : {"com.apple.ResourceFork", "com.apple.FinderInfo"}) {
    if (attribute(file, name).value_or(std::nullopt))
      return refuse("a resource fork or Finder information isn't allowed: {}", printable(file.string()));
  }
  return {};
}

}  // namespace lab
