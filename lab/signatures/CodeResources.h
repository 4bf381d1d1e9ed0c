// The seals of a bundle's files, except the main executable.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Base/JSONReader.h"
#include "Bytes.h"
#include "Digest.h"
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
  Bytes hash;  // file
  HashType hashType = HashType::sha256;
  std::string target;       // symlink: the exact text
  std::string requirement;  // nested: text; empty when there is only `cdhash`
  Bytes cdhash;             // nested
  bool optional = false;
};

class CodeResources {
 public:
  // Only the second generation of rules and seals ("rules2", "files2") is used. Refuses rules that could hide
  // files: one rule must match everything, and only the usual files may be omitted. A file's seal is a
  // SHA-256; without one, a SHA-1 is accepted when that is the `weakest`.
  static Outcome<CodeResources> read(ByteView propertyList, HashType weakest = HashType::sha256);

  // The rule for a path relative to the bundle's base: the matching rule with the greatest weight; of two
  // with the same weight, the one that omits less. Null when none matches.
  const ResourceRule* ruleFor(std::string_view path) const;

  // By composed path: a volume may have decomposed the names before or after the sealing.
  const std::unordered_map<std::string, ResourceSeal>& seals() const { return seals_; }

 private:
  Outcome<void> addRules(const installer::Json& rules);

  std::vector<ResourceRule> rules_;
  std::unordered_map<std::string, ResourceSeal> seals_;
};

// The composed form of a path or link target; bytes that aren't UTF-8 are unchanged.
std::string canonicalName(const std::string& name);

// True when an omission may apply to this file.
bool mayBeOmitted(std::string_view path);

}  // namespace lab
