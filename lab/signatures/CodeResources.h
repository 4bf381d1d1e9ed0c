// What a bundle's signature says about the files around the main executable.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Bytes.h"
#include "Digest.h"
#include "Outcome.h"
#include "Pattern.h"

namespace lab {

class PropertyList;

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
  Bytes hash;  // file
  HashType hashType = HashType::sha256;
  std::string target;       // symlink: the exact text
  std::string requirement;  // nested: text; empty when only `cdhash` is there
  Bytes cdhash;             // nested
  bool optional = false;
};

class CodeResources {
 public:
  // Only the second generation of rules and seals ("rules2", "files2") counts. Refuses rules that could hide
  // something: there must be a rule that takes in everything, and only the usual files may be omitted.
  // A file's seal is a SHA-256; where it has none, a SHA-1 counts when that is the `weakest` to be accepted.
  static Outcome<CodeResources> read(ByteView propertyList, HashType weakest = HashType::sha256);

  // The rule that decides about a path relative to the bundle's base: the heaviest that matches, and of two
  // as heavy the one that omits less. Null when none matches.
  const ResourceRule* ruleFor(std::string_view path) const;

  // By path, composed: a volume may have decomposed the names since they were sealed, or before.
  const std::unordered_map<std::string, ResourceSeal>& seals() const { return seals_; }

 private:
  Outcome<void> addRules(const PropertyList& rules);

  std::vector<ResourceRule> rules_;
  std::unordered_map<std::string, ResourceSeal> seals_;
};

// The composed form of a path or link target; bytes that aren't UTF-8 stay as they are.
std::string canonicalName(const std::string& name);

// True when an omission may apply to this file.
bool mayBeOmitted(std::string_view path);

}  // namespace lab
