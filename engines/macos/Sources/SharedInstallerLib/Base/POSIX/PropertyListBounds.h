// Checks untrusted bytes before the property list library reads them: it recurses without a limit, copies an
// object once for each reference to it, moves the rest of a text at each entity of XML and searches the keys
// of a dictionary for each key of XML.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace installer {

// The defaults are the engine's.
struct PropertyListBounds {
  static constexpr std::size_t kDepth = 128;                       // containers within containers
  static constexpr std::uint64_t kMoves = std::uint64_t{4} << 30;  // bytes moved at the entities of XML
  static constexpr std::size_t kKeys = 250000;                     // of one dictionary in XML
  std::size_t bytes = 16UL * 1024 * 1024;
  std::size_t values = 200000;  // with the keys, and in a binary list with every reference expanded
};

constexpr std::string_view kBinaryPropertyListMagic = "bplist00";

// True when the offsets and references of the binary list `bytes` are well-formed, it has no cycle and it is
// within the bounds with every reference expanded.
bool isBoundedBinaryPropertyList(std::string_view bytes,
                                 std::size_t mostValues = PropertyListBounds{}.values);

// True when the XML list `bytes`, in UTF-8 or UTF-16, is within the bounds. False also for text that two
// parsers could read differently: another encoding, attributes, an internal document type.
bool isBoundedXMLPropertyList(std::string_view bytes, std::size_t mostValues = PropertyListBounds{}.values);

}  // namespace installer
