// Whether code meets a requirement.
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

// What is known and proven about a piece of code.
struct RequirementSubject {
  std::string identifier;
  std::vector<Bytes> cdhashes;
  std::vector<Certificate> certificates;  // the proven chain, leaf first, root last; empty for ad hoc code
  std::optional<AnchorKind> anchor;
  const PropertyList* info = nullptr;
  const PropertyList* entitlements = nullptr;
};

// A failure where the answer hangs on something that can't be judged here; never a pass by negation.
Outcome<bool> meets(const Requirement& requirement, const RequirementSubject& subject);

}  // namespace lab
