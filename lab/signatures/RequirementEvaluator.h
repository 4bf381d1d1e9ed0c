// Evaluates a requirement for code.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "Anchors.h"
#include "Certificate.h"
#include "Outcome.h"
#include "PropertyList.h"
#include "Requirement.h"

namespace lab {

// The proven facts of a piece of code.
struct RequirementSubject {
  std::string identifier;
  std::vector<Bytes> cdhashes;
  std::vector<Certificate> certificates;  // the proven chain, leaf first, root last; empty for ad hoc code
  std::optional<AnchorKind> anchor;
  const Json* info = nullptr;
  const Json* entitlements = nullptr;
};

// Fails when the result depends on a `notJudgeable` operand, which a negation doesn't make true.
Outcome<bool> meets(const Requirement& requirement, const RequirementSubject& subject);

}  // namespace lab
