#include "CodeResources.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <nlohmann/json.hpp>

#include "PropertyList.h"
#include "support/Unicode.h"

namespace lab {

namespace {

namespace JSONReader = installer::JSONReader;

constexpr std::size_t kMostRules = 128;
// Every path is matched with every rule, so the total of the rules is bounded too. The usual rules have 200.
constexpr std::size_t kMostSteps = 2000;
constexpr std::string_view kTakesInEverything = "^.*";

bool flag(const Json& value, std::string_view name) {
  return JSONReader::boolean(value, name).value_or(false);
}

// True when the omission's expression ends in one of the usual names and can't match another.
bool isUsualOmission(std::string_view expression) {
  constexpr std::array<std::string_view, 6> endings{
      "\\.DS_Store$", "Info\\.plist$", "PkgInfo$", "locversion.plist$", "Info.plist$", "locversion\\.plist$"};
  return expression.starts_with('^') && expression.find('|') == std::string_view::npos &&
         std::ranges::any_of(endings, [&](std::string_view ending) { return expression.ends_with(ending); });
}

Outcome<ResourceRule> readRule(const std::string& expression, const Json& value) {
  auto pattern = Pattern::compile(expression);
  if (!pattern) return handOn(pattern, "resource rule");
  ResourceRule rule{expression, std::move(*pattern), 1, false, false, false};
  if (value.is_boolean()) {
    rule.omit = !value.get<bool>();
  } else if (value.is_number()) {
    rule.weight = value.get<double>();
  } else if (value.is_object()) {
    const Json* weight = JSONReader::member(value, "weight");
    if (weight != nullptr) rule.weight = weight->is_number() ? weight->get<double>() : std::nan("");
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

// Reads the digest of a file's seal: SHA-256, or the SHA-1 of older tools.
bool readDigest(const Json& value, HashType weakest, ResourceSeal& seal) {
  const Json* strong = JSONReader::member(value, "hash2");
  const Json* weak = value.is_binary() ? &value : JSONReader::member(value, "hash");
  const bool isWeak = strong == nullptr && weakest == HashType::sha1;
  const Json* digest = isWeak ? weak : strong;
  seal.hashType = isWeak ? HashType::sha1 : HashType::sha256;
  if (digest == nullptr || !digest->is_binary() || digest->get_binary().size() != digestSize(seal.hashType))
    return false;
  seal.hash = digest->get_binary();
  return true;
}

Outcome<ResourceSeal> readSeal(const std::string& path, const Json& value, HashType weakest) {
  ResourceSeal seal;
  seal.optional = flag(value, "optional");
  seal.target = JSONReader::string(value, "symlink").value_or("");
  if (JSONReader::member(value, "symlink") != nullptr) {
    seal.kind = ResourceSeal::Kind::symlink;
    if (seal.target.empty()) return refuse("the seal of {} has no link target", printable(path));
    return seal;
  }
  const Json* cdhash = JSONReader::member(value, "cdhash");
  seal.requirement = JSONReader::string(value, "requirement").value_or("");
  if (cdhash != nullptr && cdhash->is_binary()) seal.cdhash = cdhash->get_binary();
  if (!seal.requirement.empty() || !seal.cdhash.empty()) {
    seal.kind = ResourceSeal::Kind::nested;
    return seal;
  }
  if (!readDigest(value, weakest, seal))
    return refuse("the seal of {} has no {} digest", printable(path), nameOf(seal.hashType));
  return seal;
}

}  // namespace

Outcome<void> CodeResources::addRules(const Json& rules) {
  if (rules.size() > kMostRules) return refuse("CodeResources has too many rules");
  std::size_t steps = 0;
  for (const auto& [expression, value] : rules.items()) {
    auto rule = readRule(expression, value);
    if (!rule) return handOn(rule);
    steps += rule->pattern.size();
    rules_.push_back(std::move(*rule));
  }
  if (steps > kMostSteps) return refuse("CodeResources has rules that are too long");
  const auto takesInEverything = [](const ResourceRule& rule) {
    return rule.expression == kTakesInEverything && !rule.omit && !rule.optional;
  };
  if (std::ranges::none_of(rules_, takesInEverything))
    return refuse("resource rules could hide files: no rule includes all of them");
  return {};
}

Outcome<CodeResources> CodeResources::read(ByteView propertyList, HashType weakest) {
  const auto list = readPropertyList(propertyList);
  if (!list) return handOn(list, "CodeResources");
  const Json* rules = JSONReader::member(*list, "rules2");
  const Json* files = JSONReader::member(*list, "files2");
  if (rules == nullptr || !rules->is_object() || files == nullptr || !files->is_object()) {
    return refuse("CodeResources has no second-generation rules and seals");
  }
  CodeResources resources;
  if (auto added = resources.addRules(*rules); !added) return handOn(added);
  for (const auto& [path, value] : files->items()) {
    auto seal = readSeal(path, value, weakest);
    if (!seal) return handOn(seal);
    if (!resources.seals_.emplace(canonicalName(path), std::move(*seal)).second)
      return refuse("CodeResources seals {} twice", printable(path));
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

std::string canonicalName(const std::string& name) {
  return composed(name).value_or(name);
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
