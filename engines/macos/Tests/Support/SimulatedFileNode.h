// The nodes of the simulated file system: files, directories, links, and volumes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Support/SimulatedFileSystem.h"

namespace installer::test {

// Open files share their node with the tree, so that they refer to the file and not to its name.
struct SimulatedFileSystem::Node {
  enum class Kind { file, directory, link };
  Kind kind = Kind::file;
  std::string bytes;
  Path target;  // of a link, as written
  bool writable = true;
  bool readable = true;
  bool executable = false;
  std::optional<Path> leftoverOf;  // of a hidden sibling that a killed copy to that path left
  bool immutable = false;
  bool sticky = false;                    // of a directory
  bool others = false;                    // another user owns it
  std::uint64_t number = 0;               // a rename keeps it
  std::optional<std::int64_t> allocated;  // bytes on disk, if not computed from the length
  bool allocatedUnknown = false;
  bool locked = false;
  std::uint64_t order = 0;  // its position in a directory's list

  static Node file(std::string_view bytes) {
    Node node;
    node.bytes = bytes;
    return node;
  }
  static Node directory() {
    Node node;
    node.kind = Kind::directory;
    node.executable = true;
    return node;
  }
  static Node link(const Path& target) {
    Node node;
    node.kind = Kind::link;
    node.target = target;
    return node;
  }
};

struct SimulatedFileSystem::Volume {
  std::int64_t free = std::int64_t{1} << 40;
  bool saysCapacity = true;
  std::optional<std::int64_t> older;  // the result of `fileSystemFreeSize` when the capacity is unknown
  bool readOnly = false;
  bool hidden = false;
};

}  // namespace installer::test
