#include "Anchors.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <nlohmann/json.hpp>

#include "Base/POSIX/LinuxHostSettings.h"
#include "Base/Text.h"

namespace lab {

namespace {

constexpr std::array<std::string_view, 3> kPlatformRoots{
    "b0b1730ecbc7ff4505142c49f1295e6eda6bcaed7e2c68c5be91b5a11001f024",
    "c2b9b042dd57830e7d117dac55ac8ae19407d38e41d88f3215bc3a890444a050",
    "63343abfb89a6a03ebb57e9b3f5fa7be7c4f5c756f3017b3a8c488c3653e9179"};

}  // namespace

std::optional<Certificate> Anchors::rootNamed(const std::string& key, const std::filesystem::path& hostFile) {
  std::ifstream stream(hostFile);
  const auto host = nlohmann::json::parse(stream, nullptr, false);
  if (!host.is_object()) warning_ = hostFile.string() + " can't be read as a JSON object";
  const auto found = host.is_object() ? host.find(key) : host.end();
  if (found == host.end() || found->is_null()) return std::nullopt;
  if (!found->is_string()) warning_ = fmt::format("{}: {} isn't a string", hostFile.string(), key);
  const auto path = found->is_string() ? found->get<std::string>() : "";
  if (path.empty()) return std::nullopt;
  auto root = Certificate::readFile(hostFile.parent_path() / path);
  if (root) return *std::move(root);
  warning_ = fmt::format("{} not used: {}", key, root.error().reason);
  return std::nullopt;
}

Anchors Anchors::ofHost(const std::filesystem::path& programs) {
  Anchors anchors;
  for (const auto& folder : {programs, programs.parent_path()}) {
    const auto hostFile = folder / "linux_host.json";
    std::error_code error;
    if (!std::filesystem::exists(hostFile, error)) continue;
    anchors.testAuthority_ = anchors.rootNamed("testAuthority", hostFile);
    anchors.timestampAuthority_ = anchors.rootNamed("timestampAuthority", hostFile);
    return anchors;
  }
  return anchors;
}

Anchors Anchors::ofThisProgram() {
  const std::filesystem::path program = installer::executablePath();
  return program.empty() ? platform() : ofHost(program.parent_path());
}

Anchors Anchors::withTestAuthority(Certificate root) {
  Anchors anchors;
  anchors.testAuthority_ = std::move(root);
  return anchors;
}

Outcome<Anchors> Anchors::withRoots(const std::filesystem::path& testAuthority,
                                    const std::filesystem::path& timestampAuthority) {
  Anchors anchors;
  for (const auto& [file, root] : {std::pair{&testAuthority, &anchors.testAuthority_},
                                   std::pair{&timestampAuthority, &anchors.timestampAuthority_}}) {
    if (file->empty()) continue;
    const auto read = Certificate::readFile(*file);
    if (!read) return handOn(read);
    *root = *read;
  }
  return anchors;
}

std::optional<AnchorKind> Anchors::kindOf(const Certificate& root, Purpose purpose) const {
  const auto is = [&](const std::optional<Certificate>& named) {
    return named && named->der() == root.der();
  };
  if (purpose == Purpose::timestamp && is(timestampAuthority_)) return AnchorKind::timestampAuthority;
  if (std::ranges::find(kPlatformRoots, installer::hexadecimal(root.sha256())) != kPlatformRoots.end())
    return AnchorKind::platform;
  if (is(testAuthority_)) return AnchorKind::testAuthority;
  return std::nullopt;
}

}  // namespace lab
