// The text of a program's output in memory. One thread at a time.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace installer {

// A program's output, limited in length: of more than `kLongest` bytes the first and the last `kLongest` / 2
// are kept, with a line between them that has the number of bytes left out.
class KeptOutput {
 public:
  static constexpr std::size_t kLongest = 512UL * 1024;

  void append(std::string_view bytes);
  // Moves the text out.
  std::string take();

 private:
  std::string first_;
  std::string last_;  // up to twice its share, so that it is rarely cut
  std::size_t leftOut_ = 0;

  void cutLast();
};

}  // namespace installer
