#include "Support/SimulatedImages.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "Support/PropertyListText.h"

namespace installer::test {

namespace {

// Like the real program's output: the whole disk and the partition scheme first, without a mount point.
std::string attachedPropertyList(const Path& mountPoint) {
  return propertyListText({{"system-entities", Json::array({{{"content-hint", "GUID_partition_scheme"},
                                                             {"dev-entry", "/dev/disk4"},
                                                             {"potentially-mountable", false}},
                                                            {{"content-hint", "Apple_HFS"},
                                                             {"dev-entry", "/dev/disk4s1"},
                                                             {"mount-point", mountPoint},
                                                             {"potentially-mountable", true},
                                                             {"volume-kind", "hfs"}}})}});
}

}  // namespace

std::string SimulatedImages::make(const Path& mountPoint, Layout layout, std::size_t size) {
  auto bytes = "simulated disk image " + std::to_string(images_.size() + 1) + "\n";
  if (bytes.size() < size) bytes.resize(size, '.');
  images_[bytes] = {mountPoint, std::move(layout)};
  return bytes;
}

std::string SimulatedImages::add(const Path& path, const Path& mountPoint, Layout layout, std::size_t size) {
  auto bytes = make(mountPoint, std::move(layout), size);
  files_.addFile(path, bytes);
  return bytes;
}

void SimulatedImages::installTool(const Path& hdiutil) {
  programs_.on(hdiutil).does([this](const Arguments& arguments) {
    if (arguments.size() >= 2 && arguments[0] == "attach") {
      return attach(arguments[1], std::ranges::find(arguments, "-nobrowse") != arguments.end());
    }
    if (arguments.size() >= 2 && arguments[0] == "detach") return detach(arguments[1]);
    if (!arguments.empty() && arguments[0] == "info") return info();
    return ProgramExit{1, "", "hdiutil: unknown verb\n"};
  });
}

ProgramExit SimulatedImages::attach(const Path& file, bool hidden) {
  const auto found = images_.find(files_.fileExists(file) ? files_.read(file) : std::string{});
  if (found == images_.end()) {
    const auto reason = files_.fileExists(file) ? "image not recognized" : "No such file or directory";
    return {1, "", std::string{"hdiutil: attach failed - "} + reason + "\n"};
  }
  const auto& [mountPoint, layout] = found->second;
  if (std::ranges::find(attached_, mountPoint) == attached_.end()) {
    files_.addVolume(mountPoint, 0);
    if (hidden) files_.hideVolume(mountPoint);
    layout(files_, mountPoint);
    files_.setVolumeReadOnly(mountPoint);
    attached_.push_back(mountPoint);
    attachedFiles_[mountPoint] = file;
  }
  history_.push_back("attach " + mountPoint);
  return {0, attachedPropertyList(mountPoint), ""};
}

ProgramExit SimulatedImages::info() const {
  auto images = Json::array();
  for (const Path& mountPoint : attached_) {
    images.push_back({{"image-path", attachedFiles_.at(mountPoint)},
                      {"system-entities", Json::array({{{"mount-point", mountPoint}}})}});
  }
  return {0, propertyListText({{"images", std::move(images)}}), ""};
}

ProgramExit SimulatedImages::detach(const Path& mountPoint) {
  if (std::erase(attached_, mountPoint) == 0) {
    return {1, "", "hdiutil: detach failed - No such file or directory\n"};
  }
  files_.removeVolume(mountPoint);
  history_.push_back("detach " + mountPoint);
  return {0, "", ""};
}

}  // namespace installer::test
