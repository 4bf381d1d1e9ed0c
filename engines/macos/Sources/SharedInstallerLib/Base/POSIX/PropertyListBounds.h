// What is tested before foreign bytes reach the property list library, which recurses over whatever it is
// given and copies an object once for each reference to it.
#pragma once

#include <cstddef>
#include <string_view>

namespace installer {

struct PropertyListBounds {
  static constexpr std::size_t bytes = 16UL * 1024 * 1024;
  static constexpr std::size_t depth = 128;         // containers within containers
  static constexpr std::size_t containers = 10000;  // in XML
  static constexpr std::size_t values = 200000;     // in a binary list, after following every reference
};

constexpr std::string_view kBinaryPropertyListMagic = "bplist00";

// True when the binary list `bytes` is well-formed as far as its offsets and references go, has no cycle and
// stays within the bounds once every reference is followed.
bool isBoundedBinaryPropertyList(std::string_view bytes, std::size_t depth = PropertyListBounds::depth,
                                 std::size_t values = PropertyListBounds::values);

// True when the XML list `bytes`, in UTF-8 or UTF-16, has no more containers than allowed and none too deep.
// False also for what two parsers could read differently: another encoding, attributes, a document type of
// its own.
bool isBoundedXMLPropertyList(std::string_view bytes);

}  // namespace installer
