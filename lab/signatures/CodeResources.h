// What a bundle's signature says about the files around the main executable.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Bytes.h"
#include "Outcome.h"
#include "Pattern.h"

namespace lab {

struct ResourceRule {
  std::string expression;
  Pattern pattern;
  double weight = 1;
  bool omit = false;
  bool optional = false;
  bool nested = false;
};

struct ResourceSeal {
  enum class Kind { file, symlink, nested };
  Kind kind = Kind::file;
  Bytes hash;               // file: SHA-256
  std::string target;       // symlink: the exact text
  std::string requirement;  // nested: text; empty when only `cdhash` is there
  Bytes cdhash;             // nested
  bool optional = false;
};

class CodeResources {
 public:
  // Only the second generation of rules and seals ("rules2", "files2") counts. Refuses rules that could hide
  // something: there must be a rule that takes in everything, and only the usual files may be omitted.
  static Outcome<CodeResources> read(ByteView propertyList);

  // The rule that decides about a path relative to the bundle's base: the heaviest that matches, and of two
  // as heavy the one that omits less. Null when none matches.
  const ResourceRule* ruleFor(std::string_view path) const;

  const std::unordered_map<std::string, ResourceSeal>& seals() const { return seals_; }

 private:
  std::vector<ResourceRule> rules_;
  std::unordered_map<std::string, ResourceSeal> seals_;
};

// True when an omission may apply to this file.
bool mayBeOmitted(std::string_view path);

}  // namespace lab
