// Disk images, and the `hdiutil` that attaches and detaches them.
//
// An image is identified by its bytes and not by its path: a downloaded image can be moved and still
// attaches, one with other bytes doesn't. Attaching mounts a read-only volume at the image's mount point,
// hidden with `-nobrowse`.
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
  // Writes the image's content below the mount point.
  using Layout = std::function<void(SimulatedFileSystem& files, const Path& mountPoint)>;

  SimulatedImages(SimulatedFileSystem& files, SimulatedPrograms& programs)
      : files_{files}, programs_{programs} {}

  // The bytes of a new image, at least `size`, for a server or a file.
  std::string make(const Path& mountPoint, Layout layout, std::size_t size = 1000);
  // Writes a new image to `path` and returns its bytes.
  std::string add(const Path& path, const Path& mountPoint, Layout layout, std::size_t size = 1000);

  // The attached mount points; and all attaches and detaches in order: "attach /Volumes/X", "detach
  // /Volumes/X".
  std::vector<Path> attached() const { return attached_; }
  const std::vector<std::string>& history() const { return history_; }

  // Sets the script of the program at `hdiutil`.
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
  std::map<Path, Path> attachedFiles_;  // by mount point
  std::vector<std::string> history_;

  ProgramExit attach(const Path& file, bool hidden);
  ProgramExit info() const;
  ProgramExit detach(const Path& mountPoint);
};

}  // namespace installer::test
