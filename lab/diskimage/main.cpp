// lab-diskimage: makes a disk image from a folder.
#include <cstdio>
#include <string>
#include <vector>

#include "diskimage/DiskImage.h"
#include "support/Interruption.h"

namespace {

constexpr const char* kUsage = R"(kUsage: lab-diskimage --volume-name NAME FOLDER IMAGE
Makes the disk image file IMAGE (UDIF, zlib-compressed, HFS+) with the content of FOLDER as its volume NAME.
With SOURCE_DATE_EPOCH set, the same content gives the same bytes. Needs xorriso.
)";

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments.size() == 1 && (arguments[0] == "--help" || arguments[0] == "-h")) {
    fmt::print("{}", kUsage);
    return 0;
  }
  if (arguments.size() != 4 || arguments[0] != "--volume-name") {
    fmt::print(stderr, "{}", kUsage);
    return 64;
  }
  lab::holdInterruptions();
  const auto made = lab::makeDiskImage(arguments[2], arguments[1], arguments[3]);
  if (made) return 0;
  fmt::print(stderr, "lab-diskimage: {}\n", made.error());
  return lab::interruption() != 0 ? lab::exitStatusOf(lab::interruption()) : 1;
}
