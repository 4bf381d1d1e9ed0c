// A reader for the part of the basic encoding rules that signed data uses: definite and indefinite lengths,
// constructed strings. Nesting and the number of elements are bounded.
//
// Ours because a signature covers the written bytes of its attributes, and OpenSSL's structures of signed
// data don't keep them.
//
// Elements have views into the bytes that they were read from; the caller keeps those alive.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "Bytes.h"
#include "Outcome.h"

namespace lab {

enum class BERClass : std::uint8_t { universal = 0, application = 1, context = 2, privateUse = 3 };

// Universal tags.
inline constexpr std::uint32_t kBERInteger = 2;
inline constexpr std::uint32_t kBEROctetString = 4;
inline constexpr std::uint32_t kBERObjectIdentifier = 6;
inline constexpr std::uint32_t kBERSequence = 16;
inline constexpr std::uint32_t kBERSet = 17;
inline constexpr std::uint32_t kBERUTCTime = 23;
inline constexpr std::uint32_t kBERGeneralizedTime = 24;

struct BERElement {
  BERClass tagClass = BERClass::universal;
  std::uint32_t tag = 0;
  bool constructed = false;
  bool indefinite = false;
  ByteView raw;      // tag, length, content, and the end mark of an indefinite length
  ByteView content;  // the bytes between length and end
  std::vector<BERElement> children;

  bool is(std::uint32_t universalTag) const { return tagClass == BERClass::universal && tag == universalTag; }
  bool isContext(std::uint32_t number) const { return tagClass == BERClass::context && tag == number; }

  // The child at `index`, or null.
  const BERElement* child(std::size_t index) const {
    return index < children.size() ? &children[index] : nullptr;
  }
};

// The first element of `bytes` with everything below it; later bytes aren't read.
Outcome<BERElement> readBER(ByteView bytes);

// The text of an object identifier's content, such as "1.2.840.113549.1.7.2"; absent when it is malformed.
std::optional<std::string> objectIdentifierText(ByteView content);

// The text of an element that is an object identifier; empty for another element.
std::string objectIdentifierOf(const BERElement* element);

// An octet string's bytes, the pieces of a constructed one joined.
std::optional<Bytes> octetsOf(const BERElement& element);

// A UTCTime or a GeneralizedTime in Zulu time, fractions of a second dropped.
std::optional<std::chrono::sys_seconds> timeOf(const BERElement& element);

}  // namespace lab
