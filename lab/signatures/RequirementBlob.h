// The requirement language as signatures carry it, compiled.
#pragma once

#include <map>

#include "Outcome.h"
#include "Requirement.h"

namespace lab {

// The type of the designated requirement in a requirement set.
inline constexpr std::uint32_t kDesignatedType = 3;

// One requirement blob, header included. Every byte must belong to the expression.
Outcome<Requirement> readRequirementBlob(ByteView blob);

// The requirement blob of that type in a requirement set; absent when the set has none.
Outcome<std::optional<ByteView>> findRequirement(ByteView set, std::uint32_t type);

// The other way. Lists of operands become nested pairs. What can't be compiled (notJudgeable) must not occur.
Bytes writeRequirementBlob(const Requirement& requirement);
Bytes writeRequirementSet(const std::map<std::uint32_t, Bytes>& requirements);

}  // namespace lab
