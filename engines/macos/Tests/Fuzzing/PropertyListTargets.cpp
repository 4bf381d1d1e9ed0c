// The property lists in a disk image and of the tool that attaches it.
#include <algorithm>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <plist/plist.h>
#include <string>

#include "Base/POSIX/PropertyListBounds.h"
#include "Base/POSIX/PropertyListReader.h"
#include "Installer/DMGInstaller.h"
#include "Support/PropertyListText.h"
#include "Support/SimulatedMachine.h"
#include "Targets.h"
#include "Utils/KeloAppProvider.h"

namespace installer::test {

namespace {

std::size_t depthOf(const Json& value) {
  std::size_t depth = 0;
  if (!value.is_structured()) return depth;
  for (const auto& item : value) depth = std::max(depth, depthOf(item));
  return depth + 1;
}

std::size_t countOf(const Json& value) {
  std::size_t count = 1;
  if (!value.is_structured()) return count;
  for (const auto& item : value) count += countOf(item);
  return count;
}

// The list in its binary form, written with the library that reads it. XML can't contain control characters.
std::string rewritten(std::string_view bytes) {
  if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
  const bool isBinary = bytes.starts_with(kBinaryPropertyListMagic);
  plist_t list = nullptr;
  (isBinary ? plist_from_bin : plist_from_xml)(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &list);
  const std::unique_ptr<void, decltype(&plist_free)> owner{list, &plist_free};
  char* text = nullptr;
  std::uint32_t size = 0;
  plist_to_bin(list, &text, &size);
  const std::unique_ptr<char, decltype(&std::free)> written{text, &std::free};
  return {text, size};
}

// True when the value has only containers, booleans, integers and text without control characters, which XML
// can represent without loss.
bool isPlain(const Json& value) {
  if (value.is_array()) return std::ranges::all_of(value, isPlain);
  if (value.is_object()) {
    for (const auto& [key, item] : value.items()) {
      if (!isPlain(Json(key)) || !isPlain(item)) return false;
    }
    return true;
  }
  if (!value.is_string()) return value.is_boolean() || value.is_number_integer();
  return std::ranges::none_of(value.get_ref<const std::string&>(), [](unsigned char c) { return c < ' '; });
}

void requireBounds(const Json& list) {
  require(depthOf(list) <= PropertyListBounds::kDepth + 1, "a list is no deeper than allowed");
  require(countOf(list) <= PropertyListBounds{}.values, "a list has no more values than allowed");
}

// The first mount point of the list; absent also when an entity isn't a dictionary.
std::optional<std::string> mountPoint(const Result<Json>& list) {
  if (!list || !list->is_object() || !list->contains("system-entities")) return std::nullopt;
  const auto& entities = (*list)["system-entities"];
  if (!entities.is_array() || !std::ranges::all_of(entities, [](const Json& e) { return e.is_object(); })) {
    return std::nullopt;
  }
  for (const auto& entity : entities) {
    if (entity.contains("mount-point") && entity["mount-point"].is_string()) return entity["mount-point"];
  }
  return std::nullopt;
}

}  // namespace

void fuzzInfoPlist(std::string_view text) {
  const auto list = readPropertyList(text);
  SimulatedMachine machine;
  machine.files.addFile("/Applications/Brenna.app/Contents/Info.plist", text);
  const auto bundle = machine.bundles.read("/Applications/Brenna.app");
  require(bundle != nullptr, "a folder is a bundle");
  require((bundle->infoDictionary != nullptr) == (list && list->is_object()),
          "a bundle says what its list says");
  if (!list) return;
  requireBounds(*list);
  // Compared as text, because NaN isn't equal to itself.
  require(readPropertyList(rewritten(text)).value_or(nullptr).dump() == list->dump(),
          "a list that is written again reads the same");
  if (isPlain(*list)) {
    require(readPropertyList(propertyListText(*list)).value_or(nullptr) == *list,
            "a list that is written as XML reads the same");
  }
  if (!list->is_object()) return require(!bundle->bundleIdentifier(), "only a dictionary names a bundle");
  const auto identifier = list->find("CFBundleIdentifier");
  const bool isText = identifier != list->end() && identifier->is_string();
  require(bundle->bundleIdentifier().has_value() == isText, "only a text is an identifier");
}

void fuzzAttachList(std::string_view text) {
  SimulatedMachine machine;
  machine.programs.on(machine.paths.hdiutil).does([text](const Arguments& arguments) {
    return arguments.front() == "attach" ? ProgramExit{0, std::string{text}, ""} : ProgramExit{1, "", ""};
  });
  auto result = InstallResult::failure("not run");
  machine.dispatch.runOnWorker([&result] {
    result =
        DMGInstaller::installFromDMG("/image.dmg", *KeloAppProvider::shared().app(AppIdentifier::brenna));
  });
  require(!result.success, "an image without an app installs nothing");
  const auto mounted = mountPoint(readPropertyList(text));
  Lines detached;
  for (const auto& start : machine.programs.starts(machine.paths.hdiutil)) {
    if (start.arguments.front() == "detach") detached.push_back(start.arguments.at(1));
  }
  require(detached == (mounted ? Lines{*mounted} : Lines{}), "exactly the first mount point is detached");
  require(machine.files.tree(machine.paths.applications).empty(), "nothing is installed");
}

}  // namespace installer::test
