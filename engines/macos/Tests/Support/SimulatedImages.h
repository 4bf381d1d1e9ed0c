// Disk images, and the `hdiutil` that attaches and detaches them.
//
// An image is known by its bytes, whatever its path: a downloaded image can be moved and still attaches,
// and one with other bytes doesn't. Attaching mounts a read-only volume at the image's mount point.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Support/SimulatedFileSystem.h"
#include "Support/SimulatedPrograms.h"

namespace installer::test {

class SimulatedImages {
 public:
  // Lays the image's contents out below the mount point.
  using Layout = std::function<void(SimulatedFileSystem& files, const Path& mountPoint)>;

  SimulatedImages(SimulatedFileSystem& files, SimulatedPrograms& programs)
      : files_{files}, programs_{programs} {}

  // The bytes of a new image, `size` of them at least, to be served or written anywhere.
  std::string make(const Path& mountPoint, Layout layout, std::size_t size = 1000);
  // Writes a new image to `path` and returns its bytes.
  std::string add(const Path& path, const Path& mountPoint, Layout layout, std::size_t size = 1000);

  // Mount points that are attached now; how often each was attached and detached, in order: "attach
  // /Volumes/X", "detach /Volumes/X".
  std::vector<Path> attached() const { return attached_; }
  const std::vector<std::string>& history() const { return history_; }

  // Gives the program at `hdiutil` its script.
  void installTool(const Path& hdiutil);

 private:
  struct Image {
    Path mountPoint;
    Layout layout;
  };

  SimulatedFileSystem& files_;
  SimulatedPrograms& programs_;
  std::map<std::string, Image, std::less<>> images_;  // by their bytes
  std::vector<Path> attached_;
  std::vector<std::string> history_;

  ProgramExit attach(const Path& file);
  ProgramExit detach(const Path& mountPoint);
};

}  // namespace installer::test
