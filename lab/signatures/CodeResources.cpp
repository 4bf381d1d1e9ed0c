#include "CodeResources.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "PropertyList.h"

namespace lab {

namespace {

constexpr std::size_t kMostRules = 128;
constexpr std::string_view kTakesInEverything = "^.*";

bool flag(const PropertyList& value, std::string_view name) {
  const PropertyList* found = value.find(name);
  return found != nullptr && found->boolean() != nullptr && *found->boolean();
}

// An omission is acceptable when its expression ends in one of the usual names and can't mean another.
bool isUsualOmission(std::string_view expression) {
  constexpr std::array<std::string_view, 6> endings{
      "\\.DS_Store$", "Info\\.plist$", "PkgInfo$", "locversion.plist$", "Info.plist$", "locversion\\.plist$"};
  return expression.starts_with('^') && expression.find('|') == std::string_view::npos &&
         std::ranges::any_of(endings, [&](std::string_view ending) { return expression.ends_with(ending); });
}

Outcome<ResourceRule> readRule(const std::string& expression, const PropertyList& value) {
  auto pattern = Pattern::compile(expression);
  if (!pattern) return handOn(pattern, "resource rule");
  ResourceRule rule{expression, std::move(*pattern), 1, false, false, false};
  if (value.boolean() != nullptr) {
    rule.omit = !*value.boolean();
  } else if (value.number()) {
    rule.weight = *value.number();
  } else if (value.dictionary() != nullptr) {
    const PropertyList* weight = value.find("weight");
    if (weight != nullptr) rule.weight = weight->number().value_or(std::nan(""));
    rule.omit = flag(value, "omit");
    rule.optional = flag(value, "optional");
    rule.nested = flag(value, "nested");
  } else {
    return refuse("resource rule \"{}\" is malformed", printable(expression));
  }
  if (!std::isfinite(rule.weight))
    return refuse("resource rule \"{}\" has no usable weight", printable(expression));
  if (rule.omit && !isUsualOmission(expression))
    return refuse("resource rule \"{}\" could hide files", printable(expression));
  return rule;
}

Outcome<ResourceSeal> readSeal(const std::string& path, const PropertyList& value) {
  ResourceSeal seal;
  seal.optional = flag(value, "optional");
  seal.target = value.textAt("symlink");
  if (value.find("symlink") != nullptr) {
    seal.kind = ResourceSeal::Kind::symlink;
    if (seal.target.empty()) return refuse("the seal of {} has no link target", printable(path));
    return seal;
  }
  const PropertyList* cdhash = value.find("cdhash");
  seal.requirement = value.textAt("requirement");
  if (cdhash != nullptr && cdhash->data() != nullptr) seal.cdhash = *cdhash->data();
  if (!seal.requirement.empty() || !seal.cdhash.empty()) {
    seal.kind = ResourceSeal::Kind::nested;
    return seal;
  }
  const PropertyList* hash = value.find("hash2");
  if (hash == nullptr || hash->data() == nullptr || hash->data()->size() != 32) {
    return refuse("the seal of {} has no SHA-256 digest", printable(path));
  }
  seal.hash = *hash->data();
  return seal;
}

}  // namespace

Outcome<CodeResources> CodeResources::read(ByteView propertyList) {
  const auto list = PropertyList::read(propertyList);
  if (!list) return handOn(list, "CodeResources");
  const PropertyList* rules = list->find("rules2");
  const PropertyList* files = list->find("files2");
  if (rules == nullptr || rules->dictionary() == nullptr || files == nullptr ||
      files->dictionary() == nullptr) {
    return refuse("CodeResources has no second-generation rules and seals");
  }
  if (rules->dictionary()->size() > kMostRules) return refuse("CodeResources has too many rules");
  CodeResources resources;
  for (const auto& [expression, value] : *rules->dictionary()) {
    auto rule = readRule(expression, value);
    if (!rule) return handOn(rule);
    resources.rules_.push_back(std::move(*rule));
  }
  const auto takesInEverything = [](const ResourceRule& rule) {
    return rule.expression == kTakesInEverything && !rule.omit && !rule.optional;
  };
  if (std::ranges::none_of(resources.rules_, takesInEverything))
    return refuse("resource rules could hide files: none takes in everything");
  for (const auto& [path, value] : *files->dictionary()) {
    auto seal = readSeal(path, value);
    if (!seal) return handOn(seal);
    resources.seals_.emplace(path, std::move(*seal));
  }
  return resources;
}

const ResourceRule* CodeResources::ruleFor(std::string_view path) const {
  const ResourceRule* best = nullptr;
  for (const ResourceRule& rule : rules_) {
    if (best != nullptr && (rule.weight < best->weight || (rule.weight == best->weight && !best->omit)))
      continue;
    if (rule.pattern.matches(path)) best = &rule;
  }
  return best;
}

bool mayBeOmitted(std::string_view path) {
  if (path == "Info.plist" || path == "PkgInfo" || path == "Resources/Info.plist") return true;
  const auto slash = path.rfind('/');
  const auto name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  if (name == ".DS_Store") return true;
  return name == "locversion.plist" && slash != std::string_view::npos &&
         path.substr(0, slash).ends_with(".lproj");
}

}  // namespace lab
