// The compiled requirement language in signatures.
#pragma once

#include <map>

#include "Outcome.h"
#include "Requirement.h"

namespace lab {

// The type of the designated requirement in a requirement set.
inline constexpr std::uint32_t kDesignatedType = 3;

// Reads one requirement blob, with its header. Every byte must belong to the expression.
Outcome<Requirement> readRequirementBlob(ByteView blob);

// The requirement blob of that type in a requirement set; absent when the set has none.
Outcome<std::optional<ByteView>> findRequirement(ByteView set, std::uint32_t type);

// Compiles a requirement. Lists of operands become nested pairs. `notJudgeable` must not occur.
Bytes writeRequirementBlob(const Requirement& requirement);
Bytes writeRequirementSet(const std::map<std::uint32_t, Bytes>& requirements);

}  // namespace lab
