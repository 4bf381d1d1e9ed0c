// lab-diskimage: makes a disk image from a folder.
#include "diskimage/DiskImage.h"
#include "support/CommandLine.h"
#include "support/Interruption.h"

int main(int argc, char** argv) {
  std::string volume, folder, image;
  CLI::App program{
      "Makes a disk image (UDIF, zlib-compressed, HFS+) with the content of a folder. Needs xorriso.",
      "lab-diskimage"};
  program.add_option("--volume-name", volume, "the volume's name")->required();
  program.add_option("FOLDER", folder, "the content of the volume")->required();
  program.add_option("IMAGE", image, "the file to make")->required();
  program.footer("With SOURCE_DATE_EPOCH set, the same content gives the same bytes.");
  if (const auto ended = lab::readCommandLine(program, argc, argv)) return *ended;
  lab::holdInterruptions();
  const auto made = lab::makeDiskImage(folder, volume, image);
  if (made) return 0;
  fmt::print(stderr, "lab-diskimage: {}\n", made.error());
  return lab::interruption() != 0 ? lab::exitStatusOf(lab::interruption()) : 1;
}
