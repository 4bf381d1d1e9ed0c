// The content of a `release-notes.json`: the changes of each release.
// Reading is strict, unlike that of package metadata: a wrong type or a missing required key fails the whole.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace installer {

struct ReleaseNotes {
  struct Entry {
    std::string version;
    std::optional<std::string> date;  // not interpreted
    std::vector<std::string> notes;

    friend bool operator==(const Entry&, const Entry&) = default;
  };

  std::optional<std::string> product;
  std::optional<std::string> version;
  std::vector<Entry> releases;

  // Absent on any fault. A null under an optional key counts as a missing key; unknown keys are ignored.
  static std::optional<ReleaseNotes> decode(std::string_view bytes);

  // The same keys; absent fields are left out.
  nlohmann::json encode() const;

  friend bool operator==(const ReleaseNotes&, const ReleaseNotes&) = default;
};

}  // namespace installer
