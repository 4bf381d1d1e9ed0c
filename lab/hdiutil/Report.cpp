#include "hdiutil/Report.h"

#include "diskimage/ResourceList.h"

namespace lab {
namespace {

constexpr const char* kMapHint = "Apple_partition_map";
constexpr const char* kSchemeHint = "Apple_partition_scheme";

const char* volumeHint(const Mount& mount) {
  return mount.volumeKind == "apfs" ? "Apple_APFS" : "Apple_HFS";
}

plist_t entity(const std::string& device, const char* hint) {
  plist_t entry = plist_new_dict();
  plist_dict_set_item(entry, "content-hint", plist_new_string(hint));
  plist_dict_set_item(entry, "dev-entry", plist_new_string(device.c_str()));
  plist_dict_set_item(entry, "potentially-mountable", plist_new_bool(0));
  plist_dict_set_item(entry, "unmapped-content-hint", plist_new_string(hint));
  return entry;
}

plist_t volumeEntity(const Mount& mount) {
  plist_t entry = entity(mount.disk + "s2", volumeHint(mount));
  plist_dict_set_item(entry, "potentially-mountable", plist_new_bool(1));
  plist_dict_set_item(entry, "mount-point", plist_new_string(mount.mountPoint.c_str()));
  plist_dict_set_item(entry, "volume-kind", plist_new_string(mount.volumeKind.c_str()));
  return entry;
}

plist_t entities(const Mount& mount) {
  plist_t array = plist_new_array();
  plist_array_append_item(array, entity(mount.disk, kSchemeHint));
  plist_array_append_item(array, entity(mount.disk + "s1", kMapHint));
  plist_array_append_item(array, volumeEntity(mount));
  return array;
}

}  // namespace

std::string attachedList(const Mount& mount) {
  plist_t root = plist_new_dict();
  plist_dict_set_item(root, "system-entities", entities(mount));
  return xmlOf(root);
}

std::string attachedLines(const Mount& mount) {
  return fmt::format("{:<20}\t{:<31}\t\n{:<20}\t{:<31}\t\n{:<20}\t{:<31}\t{}\n", mount.disk, kSchemeHint,
                     mount.disk + "s1", kMapHint, mount.disk + "s2", volumeHint(mount), mount.mountPoint);
}

std::string infoList(std::span<const Mount> mounts) {
  plist_t images = plist_new_array();
  for (const Mount& mount : mounts) {
    plist_t image = plist_new_dict();
    plist_dict_set_item(image, "image-path", plist_new_string(mount.image.c_str()));
    plist_dict_set_item(image, "system-entities", entities(mount));
    plist_dict_set_item(image, "writeable", plist_new_bool(0));
    plist_array_append_item(images, image);
  }
  plist_t root = plist_new_dict();
  plist_dict_set_item(root, "images", images);
  return xmlOf(root);
}

std::string infoLines(std::span<const Mount> mounts) {
  std::string lines;
  for (const Mount& mount : mounts) {
    lines += fmt::format(
        "================================================\nimage-path      : {}\nwriteable       : FALSE\n{}",
        mount.image, attachedLines(mount));
  }
  return lines;
}

}  // namespace lab
