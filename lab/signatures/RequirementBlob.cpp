#include "RequirementBlob.h"

#include <array>
#include <charconv>

#include "BER.h"
#include "BlobWriter.h"
#include "SuperBlob.h"

namespace lab {

namespace {

constexpr int kDeepestExpression = 128;
constexpr std::uint32_t kExpressionKind = 1;

enum Opcode : std::uint32_t {
  opFalse = 0,
  opTrue = 1,
  opIdentifier = 2,
  opAnchorApple = 3,
  opAnchorHash = 4,
  opInfoValue = 5,
  opAnd = 6,
  opOr = 7,
  opCDHash = 8,
  opNot = 9,
  opInfo = 10,
  opCertificateField = 11,
  opTrustedCertificate = 12,
  opTrustedCertificates = 13,
  opCertificateExtension = 14,
  opAnchorAppleGeneric = 15,
  opEntitlement = 16
};

// The numbers of the matches; the gap is for comparisons of dates.
struct MatchNumber {
  MatchKind kind;
  std::uint32_t number;
};
constexpr std::array<MatchNumber, 10> kMatches{{{MatchKind::exists, 0},
                                                {MatchKind::equal, 1},
                                                {MatchKind::contains, 2},
                                                {MatchKind::beginsWith, 3},
                                                {MatchKind::endsWith, 4},
                                                {MatchKind::less, 5},
                                                {MatchKind::greater, 6},
                                                {MatchKind::lessEqual, 7},
                                                {MatchKind::greaterEqual, 8},
                                                {MatchKind::absent, 14}}};

bool takesValue(MatchKind kind) {
  return kind != MatchKind::exists && kind != MatchKind::absent;
}

class BlobReader {
 public:
  explicit BlobReader(ByteView expression) : expression_(expression) {}

  Outcome<Requirement> read() {
    auto requirement = expression(0);
    if (requirement && at_ != expression_.size())
      return refuse("compiled requirement has bytes after its end");
    return requirement;
  }

 private:
  Outcome<std::uint32_t> number() {
    const auto value = be32(expression_, at_);
    if (!value) return refuse("compiled requirement is truncated");
    at_ += 4;
    return *value;
  }

  Outcome<Bytes> data() {
    const auto length = number();
    if (!length) return handOn(length);
    const auto bytes = slice(expression_, at_, *length);
    const std::uint64_t padded = (std::uint64_t{*length} + 3) / 4 * 4;
    if (!bytes || !slice(expression_, at_, padded)) return refuse("compiled requirement is truncated");
    at_ += padded;
    return copyOf(*bytes);
  }

  Outcome<Match> match() {
    const auto stored = number();
    if (!stored) return handOn(stored);
    for (const auto& [kind, known] : kMatches) {
      if (known != *stored) continue;
      if (!takesValue(kind)) return Match{kind, {}};
      auto value = data();
      if (!value) return handOn(value);
      return Match{kind, textOf(*value)};
    }
    return refuse("compiled requirement uses the unsupported match {}", *stored);
  }

  Outcome<Requirement> expression(int depth) {
    if (depth > kDeepestExpression) return refuse("compiled requirement is nested too deeply");
    const auto opcode = number();
    if (!opcode) return handOn(opcode);
    using enum Requirement::Kind;
    switch (*opcode) {
      case opFalse: return simple(never);
      case opTrue: return simple(always);
      case opAnchorApple: return simple(anchorApple);
      case opAnchorAppleGeneric: return simple(anchorAppleGeneric);
      case opTrustedCertificates: return notJudgeableHere("trusted");
      case opIdentifier: return withText(identifier);
      case opCDHash: return withHash(simple(cdhash));
      case opAnchorHash: return withSlot(certificateHash, &BlobReader::withHash);
      case opInfoValue: return infoValue();
      case opInfo: return withKey(simple(info));
      case opEntitlement: return withKey(simple(entitlement));
      case opCertificateField: return withSlot(certificateField, &BlobReader::withField);
      case opCertificateExtension: return withSlot(certificateExtension, &BlobReader::withExtension);
      case opTrustedCertificate: return trustedCertificate();
      case opAnd: return withOperands(conjunction, 2, depth);
      case opOr: return withOperands(disjunction, 2, depth);
      case opNot: return withOperands(negation, 1, depth);
      default: return refuse("compiled requirement uses the unsupported operation {}", *opcode);
    }
  }

  static Requirement simple(Requirement::Kind kind) {
    Requirement requirement;
    requirement.kind = kind;
    return requirement;
  }

  static Requirement notJudgeableHere(const char* what) {
    Requirement requirement = simple(Requirement::Kind::notJudgeable);
    requirement.text = what;
    return requirement;
  }

  Outcome<Requirement> trustedCertificate() {
    if (const auto slot = number(); !slot) return handOn(slot);
    return notJudgeableHere("trusted");
  }

  Outcome<Requirement> withText(Requirement::Kind kind) {
    auto text = data();
    if (!text) return handOn(text);
    Requirement requirement = simple(kind);
    requirement.text = textOf(*text);
    return requirement;
  }

  Outcome<Requirement> withHash(Requirement requirement) {
    auto hash = data();
    if (!hash) return handOn(hash);
    if (hash->size() != 20) return refuse("compiled requirement has a hash of {} bytes", hash->size());
    requirement.hash = std::move(*hash);
    return requirement;
  }

  Outcome<Requirement> withSlot(Requirement::Kind kind,
                                Outcome<Requirement> (BlobReader::*rest)(Requirement)) {
    const auto slot = number();
    if (!slot) return handOn(slot);
    Requirement requirement = simple(kind);
    requirement.slot = static_cast<std::int32_t>(*slot);
    return (this->*rest)(std::move(requirement));
  }

  Outcome<Requirement> withKey(Requirement requirement) {
    auto key = data();
    if (!key) return handOn(key);
    requirement.text = textOf(*key);
    auto stored = match();
    if (!stored) return handOn(stored);
    requirement.match = std::move(*stored);
    return requirement;
  }

  Outcome<Requirement> withField(Requirement requirement) {
    auto keyed = withKey(std::move(requirement));
    if (keyed && !keyed->text.starts_with("subject."))
      return refuse("compiled requirement has the unknown field \"{}\"", printable(keyed->text));
    return keyed;
  }

  Outcome<Requirement> withExtension(Requirement requirement) {
    auto keyed = withKey(std::move(requirement));
    if (!keyed) return handOn(keyed);
    const auto text = objectIdentifierText(viewOf(keyed->text));
    if (!text) return refuse("compiled requirement has a malformed object identifier");
    keyed->text = *text;
    return keyed;
  }

  // The older form of a test of Info.plist, always for equality.
  Outcome<Requirement> infoValue() {
    auto key = data();
    auto value = key ? data() : key;
    if (!value) return handOn(value);
    Requirement requirement = simple(Requirement::Kind::info);
    requirement.text = textOf(*key);
    requirement.match = {MatchKind::equal, textOf(*value)};
    return requirement;
  }

  Outcome<Requirement> withOperands(Requirement::Kind kind, int count, int depth) {
    Requirement requirement = simple(kind);
    for (int i = 0; i < count; ++i) {
      auto operand = expression(depth + 1);
      if (!operand) return handOn(operand);
      requirement.operands.push_back(std::move(*operand));
    }
    return requirement;
  }

  ByteView expression_;
  std::uint64_t at_ = 0;
};

// The encoded arcs of a dotted object identifier.
Bytes objectIdentifierBytes(std::string_view text) {
  std::vector<std::uint64_t> arcs;
  const char* at = text.data();
  const char* const end = at + text.size();
  while (at < end) {
    std::uint64_t arc = 0;
    at = std::from_chars(at, end, arc).ptr + 1;
    arcs.push_back(arc);
  }
  Bytes bytes;
  if (arcs.size() < 2) return bytes;
  arcs[1] += arcs[0] * 40;
  for (std::size_t i = 1; i < arcs.size(); ++i) {
    Bytes encoded{static_cast<std::uint8_t>(arcs[i] & 0x7FU)};
    for (std::uint64_t rest = arcs[i] >> 7U; rest != 0; rest >>= 7U) {
      encoded.insert(encoded.begin(), static_cast<std::uint8_t>(0x80U | (rest & 0x7FU)));
    }
    bytes.insert(bytes.end(), encoded.begin(), encoded.end());
  }
  return bytes;
}

class Writer {
 public:
  void expression(const Requirement& requirement) {
    using enum Requirement::Kind;
    switch (requirement.kind) {
      case never:
      case notJudgeable: return out_.number(opFalse);
      case always: return out_.number(opTrue);
      case identifier: return field(opIdentifier, requirement.text);
      case anchorApple: return out_.number(opAnchorApple);
      case anchorAppleGeneric: return out_.number(opAnchorAppleGeneric);
      case cdhash: return field(opCDHash, textOf(requirement.hash));
      case certificateHash: slot(opAnchorHash, requirement.slot); return data(textOf(requirement.hash));
      case certificateField:
        slot(opCertificateField, requirement.slot);
        return keyAndMatch(requirement.text, requirement.match);
      case certificateExtension:
        slot(opCertificateExtension, requirement.slot);
        return keyAndMatch(textOf(objectIdentifierBytes(requirement.text)), requirement.match);
      case info: out_.number(opInfo); return keyAndMatch(requirement.text, requirement.match);
      case entitlement: out_.number(opEntitlement); return keyAndMatch(requirement.text, requirement.match);
      case negation: out_.number(opNot); return expression(requirement.operands.front());
      case conjunction: return pairs(opAnd, requirement.operands);
      case disjunction: return pairs(opOr, requirement.operands);
    }
  }

  Bytes bytes() { return out_.take(); }

 private:
  void data(const std::string& text) {
    out_.number(static_cast<std::uint32_t>(text.size()));
    out_.append(viewOf(text));
    out_.alignTo(4);
  }

  void field(std::uint32_t opcode, const std::string& text) {
    out_.number(opcode);
    data(text);
  }

  void slot(std::uint32_t opcode, std::int32_t number) {
    out_.number(opcode);
    out_.number(static_cast<std::uint32_t>(number));
  }

  void keyAndMatch(const std::string& key, const Match& match) {
    data(key);
    for (const auto& [kind, number] : kMatches) {
      if (kind == match.kind) out_.number(number);
    }
    if (takesValue(match.kind)) data(match.value);
  }

  void pairs(std::uint32_t opcode, const std::vector<Requirement>& operands) {
    for (std::size_t i = 1; i < operands.size(); ++i) out_.number(opcode);
    for (const Requirement& operand : operands) expression(operand);
  }

  BlobWriter out_;
};

}  // namespace

Outcome<Requirement> readRequirementBlob(ByteView blob) {
  auto whole = wholeBlob(blob, kRequirementMagic, "compiled requirement");
  if (!whole) return handOn(whole);
  if (be32(blob, 8) != kExpressionKind) return refuse("compiled requirement is of an unknown kind");
  return BlobReader(blob.subspan(12)).read();
}

Outcome<std::optional<ByteView>> findRequirement(ByteView set, std::uint32_t type) {
  const auto all = readBlobIndex(set, kRequirementsMagic);
  if (!all) return handOn(all);
  const auto found = all->find(type);
  if (found == all->end()) return std::nullopt;
  return found->second;
}

Bytes writeRequirementBlob(const Requirement& requirement) {
  Writer writer;
  writer.expression(requirement);
  BlobWriter payload;
  payload.number(kExpressionKind);
  payload.append(writer.bytes());
  return blobOf(kRequirementMagic, payload.take());
}

Bytes writeRequirementSet(const std::map<std::uint32_t, Bytes>& requirements) {
  return blobIndexOf(kRequirementsMagic, requirements);
}

}  // namespace lab
