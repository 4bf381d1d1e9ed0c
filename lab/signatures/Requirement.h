// A code requirement: an expression about the signer and the identifier of code.
#pragma once

#include <string>
#include <vector>

#include "Bytes.h"

namespace lab {

enum class MatchKind {
  exists,
  absent,
  equal,
  contains,
  beginsWith,
  endsWith,
  less,
  greater,
  lessEqual,
  greaterEqual
};

struct Match {
  MatchKind kind = MatchKind::exists;
  std::string value;
};

// Certificate slots: 0 is the leaf, 1 its issuer, and so on; -1 is the root, -2 the one that the root issued.
inline constexpr std::int32_t kLeafSlot = 0;
inline constexpr std::int32_t kRootSlot = -1;

struct Requirement {
  enum class Kind {
    never,
    always,
    identifier,            // text
    anchorApple,           //
    anchorAppleGeneric,    //
    certificateHash,       // slot, hash
    certificateField,      // slot, text ("subject.OU"), match
    certificateExtension,  // slot, text (object identifier), match
    cdhash,                // hash
    info,                  // text (key), match
    entitlement,           // text (key), match
    notJudgeable,          // text: the unsupported test; neither true nor false here
    conjunction,           // operands
    disjunction,           // operands
    negation               // one operand
  };

  Kind kind = Kind::never;
  std::int32_t slot = kLeafSlot;
  std::string text;
  Bytes hash;
  Match match;
  std::vector<Requirement> operands;
};

}  // namespace lab
