#include "RequirementEvaluator.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace lab {

namespace {

// Compares runs of digits as numbers and the rest as text, like versions.
int compareNumerically(std::string_view left, std::string_view right) {
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  const auto takeNumber = [&](std::string_view& text) {
    const auto* end = std::ranges::find_if_not(text, isDigit);
    std::string_view digits = text.substr(0, static_cast<std::size_t>(end - text.begin()));
    text.remove_prefix(digits.size());
    digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
    return digits;
  };
  while (!left.empty() && !right.empty()) {
    if (isDigit(left.front()) && isDigit(right.front())) {
      const auto a = takeNumber(left);
      const auto b = takeNumber(right);
      if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
      if (a != b) return a < b ? -1 : 1;
      continue;
    }
    if (left.front() != right.front()) return left.front() < right.front() ? -1 : 1;
    left.remove_prefix(1);
    right.remove_prefix(1);
  }
  return static_cast<int>(!left.empty()) - static_cast<int>(!right.empty());
}

bool matchesText(const Match& match, const std::string& text) {
  switch (match.kind) {
    case MatchKind::exists: return true;
    case MatchKind::absent: return false;
    case MatchKind::equal: return text == match.value;
    case MatchKind::contains: return text.find(match.value) != std::string::npos;
    case MatchKind::beginsWith: return text.starts_with(match.value);
    case MatchKind::endsWith: return text.ends_with(match.value);
    case MatchKind::less: return compareNumerically(text, match.value) < 0;
    case MatchKind::greater: return compareNumerically(text, match.value) > 0;
    case MatchKind::lessEqual: return compareNumerically(text, match.value) <= 0;
    case MatchKind::greaterEqual: return compareNumerically(text, match.value) >= 0;
  }
  return false;
}

bool matchesValue(const Match& match, const Json* value) {
  if (value == nullptr) return match.kind == MatchKind::absent;
  if (match.kind == MatchKind::exists) {
    // A flag with the value false grants nothing.
    return !value->is_boolean() || value->get<bool>();
  }
  const auto isMatch = [&](const Json& item) {
    return item.is_string() && matchesText(match, item.get_ref<const std::string&>());
  };
  return value->is_array() ? std::ranges::any_of(*value, isMatch) : isMatch(*value);
}

class Evaluator {
 public:
  explicit Evaluator(const RequirementSubject& subject) : subject_(&subject) {}

  Outcome<bool> evaluate(const Requirement& requirement) const {
    using enum Requirement::Kind;
    switch (requirement.kind) {
      case never: return false;
      case always: return true;
      case identifier: return subject_->identifier == requirement.text;
      case anchorApple: return isPlatformsOwn();
      case anchorAppleGeneric: return subject_->anchor.has_value();
      case certificateHash: return hasHash(requirement);
      case certificateField: return hasField(requirement);
      case certificateExtension: return hasExtension(requirement);
      case cdhash: return std::ranges::find(subject_->cdhashes, requirement.hash) != subject_->cdhashes.end();
      case info: return matchesValue(requirement.match, found(subject_->info, requirement.text));
      case entitlement:
        return matchesValue(requirement.match, found(subject_->entitlements, requirement.text));
      case notJudgeable: return refuse("\"{}\" can't be evaluated on this machine", requirement.text);
      case conjunction: return combine(requirement.operands, false);
      case disjunction: return combine(requirement.operands, true);
      case negation: return negate(evaluate(requirement.operands.front()));
    }
    return false;
  }

 private:
  static Outcome<bool> negate(Outcome<bool> met) {
    if (met) *met = !*met;
    return met;
  }

  static const Json* found(const Json* list, const std::string& key) {
    return list == nullptr ? nullptr : installer::JSONReader::member(*list, key);
  }

  const Certificate* certificate(std::int32_t slot) const {
    const auto count = static_cast<std::int32_t>(subject_->certificates.size());
    const std::int64_t index = slot < 0 ? std::int64_t{count} + slot : slot;
    return index < 0 || index >= count ? nullptr : &subject_->certificates[static_cast<std::size_t>(index)];
  }

  // True for the platform vendor's own code; never true under a test authority.
  bool isPlatformsOwn() const {
    if (subject_->anchor != AnchorKind::platform || subject_->certificates.size() != 3) return false;
    return subject_->certificates[0].subject("CN") == std::vector<std::string>{"Software Signing"} &&
           subject_->certificates[1].subject("CN") ==
               std::vector<std::string>{"Apple Code Signing Certification Authority"};
  }

  bool hasHash(const Requirement& requirement) const {
    const Certificate* one = certificate(requirement.slot);
    return one != nullptr && one->sha1() == requirement.hash;
  }

  bool hasField(const Requirement& requirement) const {
    const Certificate* one = certificate(requirement.slot);
    if (one == nullptr) return false;
    const auto values = one->subject(std::string_view(requirement.text).substr(8));
    if (values.empty()) return requirement.match.kind == MatchKind::absent;
    // A field with two values is ambiguous, so it matches nothing.
    return values.size() == 1 && matchesText(requirement.match, values.front());
  }

  Outcome<bool> hasExtension(const Requirement& requirement) const {
    const Certificate* one = certificate(requirement.slot);
    if (one == nullptr) return false;
    const bool exists = one->hasExtension(requirement.text);
    if (requirement.match.kind == MatchKind::exists) return exists;
    if (requirement.match.kind == MatchKind::absent) return !exists;
    return refuse("the value of a certificate extension can't be compared here");
  }

  // A deciding operand decides the whole, also when another operand is `notJudgeable`.
  Outcome<bool> combine(const std::vector<Requirement>& operands, bool deciding) const {
    Outcome<bool> result = !deciding;
    for (const Requirement& operand : operands) {
      auto one = evaluate(operand);
      if (one && *one == deciding) return deciding;
      if (!one) result = one;
    }
    return result;
  }

  const RequirementSubject* subject_;
};

}  // namespace

Outcome<bool> meets(const Requirement& requirement, const RequirementSubject& subject) {
  return Evaluator(subject).evaluate(requirement);
}

}  // namespace lab
