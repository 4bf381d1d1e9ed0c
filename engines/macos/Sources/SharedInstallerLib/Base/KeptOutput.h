#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace installer {

// What is kept of a program's output: all of it, or of more than `kLongest` bytes the first and the last half
// of that, with a line between them that says how many bytes are left out.
class KeptOutput {
 public:
  static constexpr std::size_t kLongest = 512UL * 1024;

  void append(std::string_view bytes);
  // Takes the text out; nothing is kept afterwards.
  std::string take();

 private:
  std::string first_;
  std::string last_;  // up to twice its share, so that it is cut seldom
  std::size_t leftOut_ = 0;

  void cutLast();
};

}  // namespace installer
