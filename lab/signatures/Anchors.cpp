#include "Anchors.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <nlohmann/json.hpp>

#include "Base/Text.h"

namespace lab {

namespace {

constexpr std::array<std::string_view, 3> kPlatformRoots{
    "b0b1730ecbc7ff4505142c49f1295e6eda6bcaed7e2c68c5be91b5a11001f024",
    "c2b9b042dd57830e7d117dac55ac8ae19407d38e41d88f3215bc3a890444a050",
    "63343abfb89a6a03ebb57e9b3f5fa7be7c4f5c756f3017b3a8c488c3653e9179"};

// The value of the key "testAuthority", resolved against the file's folder; absent when there is none.
Outcome<std::optional<std::filesystem::path>> testAuthorityPath(const std::filesystem::path& hostFile) {
  std::ifstream stream(hostFile);
  const auto host = nlohmann::json::parse(stream, nullptr, false);
  if (!host.is_object()) return refuse("{} can't be read as a JSON object", hostFile.string());
  const auto found = host.find("testAuthority");
  if (found == host.end() || found->is_null()) return std::nullopt;
  if (!found->is_string()) return refuse("{}: testAuthority isn't a string", hostFile.string());
  const auto path = found->get<std::string>();
  if (path.empty()) return std::nullopt;
  return hostFile.parent_path() / path;
}

}  // namespace

Anchors Anchors::ofHost(const std::filesystem::path& programs) {
  Anchors anchors;
  for (const auto& folder : {programs, programs.parent_path()}) {
    const auto hostFile = folder / "linux_host.json";
    std::error_code error;
    if (!std::filesystem::exists(hostFile, error)) continue;
    const auto path = testAuthorityPath(hostFile);
    if (!path) anchors.warning_ = path.error().reason;
    if (!path || !*path) return anchors;
    auto root = Certificate::readFile(**path);
    if (root) anchors.testAuthority_ = *root;
    if (!root) anchors.warning_ = "test authority not used: " + root.error().reason;
    return anchors;
  }
  return anchors;
}

Anchors Anchors::ofThisProgram() {
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? platform() : ofHost(program.parent_path());
}

Anchors Anchors::withTestAuthority(Certificate root) {
  Anchors anchors;
  anchors.testAuthority_ = std::move(root);
  return anchors;
}

std::optional<AnchorKind> Anchors::kindOf(const Certificate& root) const {
  if (std::ranges::find(kPlatformRoots, installer::hexadecimal(root.sha256())) != kPlatformRoots.end())
    return AnchorKind::platform;
  if (testAuthority_ && testAuthority_->der() == root.der()) return AnchorKind::testAuthority;
  return std::nullopt;
}

}  // namespace lab
