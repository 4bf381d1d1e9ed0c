#include "diskimage/DiskImage.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

#include "Base/POSIX/WholeFile.h"
#include "diskimage/HFSVolume.h"
#include "diskimage/SourceFolder.h"
#include "diskimage/UDIFWriter.h"
#include "support/ChildProcess.h"
#include "support/Files.h"
#include "support/Unicode.h"

namespace lab {
namespace {

OrReason<> checkVolumeName(const std::string& name) {
  const bool plain = std::ranges::none_of(
      name, [](unsigned char c) { return c < 0x20 || c == 0x7f || c == '/' || c == ':' || c == '\\'; });
  if (!plain || name.empty() || name.size() > 32 || name.starts_with('.') || !composed(name)) {
    return because("\"{}\" can't be a volume's name", name);
  }
  return {};
}

OrReason<> makeIn(const fs::path& scratch, const fs::path& folder, const std::string& volumeName,
                  const fs::path& image) {
  const fs::path volumeFile = scratch / "volume.hfs";
  const auto volume = makeHFSVolume(folder, volumeName, scratch, volumeFile);
  if (!volume) return volume;
  const auto kept = checkKept(folder, volumeFile, volumeName);
  if (!kept) return kept;
  installer::FileReplacement replacement{image};
  if (!replacement.file()) return becauseOfErrno(image.string());
  const auto written = writeUDIF(volumeFile, replacement.file().get());
  if (written && !replacement.commit()) return becauseOfErrno(image.string());
  return written;
}

OrReason<installer::FileDescriptor> openImage(const fs::path& image) {
  installer::FileDescriptor file{open(image.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)};
  if (!file) return becauseOfErrno(image.string());
  struct stat status{};
  if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return because("it isn't a file");
  return file;
}

}  // namespace

OrReason<> makeDiskImage(const fs::path& folder, const std::string& volumeName, const fs::path& image) {
  const auto named = checkVolumeName(volumeName);
  if (!named) return named;
  std::error_code error;
  const fs::path source = fs::canonical(folder, error);
  if (error || !fs::is_directory(source)) return because("{} isn't a folder", folder.string());
  const fs::path target = fs::absolute(image);
  std::string scratch = (target.parent_path() / ".lab-diskimage.XXXXXX").string();
  if (mkdtemp(scratch.data()) == nullptr) return becauseOfErrno(scratch);
  const auto made = makeIn(scratch, source, volumeName, target);
  const auto cleaned = removeTree(scratch);
  return made ? cleaned : made;
}

OrReason<UDIFTrailer> readTrailer(const fs::path& image) {
  const auto file = openImage(image);
  if (!file) return handOn(file);
  const off_t size = lseek(file->get(), 0, SEEK_END);
  UDIFTrailer::Block block{};
  if (size < static_cast<off_t>(block.size())) return because("it is too short for a UDIF image");
  const off_t start = size - static_cast<off_t>(block.size());
  if (pread(file->get(), block.data(), block.size(), start) != static_cast<ssize_t>(block.size())) {
    return becauseOfErrno(image.string());
  }
  return UDIFTrailer::parse(block, static_cast<std::uint64_t>(size));
}

OrReason<> verifyChecksums(const fs::path& image) {
  const auto finished = runToEnd({"7zz", "t", "-tdmg", "-bd", "-p", "--", image.string()});
  if (!finished) return handOn(finished);
  const std::string said = finished->output + finished->diagnostics;
  // 7-Zip only warns about a wrong master checksum.
  const bool differs = said.contains("CRC Error") || said.contains("Master CRC error");
  if (finished->status == 0 && !differs) return {};
  return because("its data doesn't match its checksum");
}

}  // namespace lab
