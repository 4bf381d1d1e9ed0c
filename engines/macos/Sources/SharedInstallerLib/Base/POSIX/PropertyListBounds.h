// Checks untrusted bytes before the property list library reads them: it recurses without a limit and copies
// an object once for each reference to it.
#pragma once

#include <cstddef>
#include <string_view>

namespace installer {

struct PropertyListBounds {
  static constexpr std::size_t kBytes = 16UL * 1024 * 1024;
  static constexpr std::size_t kDepth = 128;         // containers within containers
  static constexpr std::size_t kContainers = 10000;  // in XML
  static constexpr std::size_t kValues = 200000;     // in a binary list, with every reference expanded
};

constexpr std::string_view kBinaryPropertyListMagic = "bplist00";

// True when the offsets and references of the binary list `bytes` are well-formed, it has no cycle and it is
// within the bounds with every reference expanded.
bool isBoundedBinaryPropertyList(std::string_view bytes, std::size_t depth = PropertyListBounds::kDepth,
                                 std::size_t values = PropertyListBounds::kValues);

// True when the XML list `bytes`, in UTF-8 or UTF-16, is within the bounds for containers and depth. False
// also for text that two parsers could read differently: another encoding, attributes, an internal document
// type.
bool isBoundedXMLPropertyList(std::string_view bytes);

}  // namespace installer
