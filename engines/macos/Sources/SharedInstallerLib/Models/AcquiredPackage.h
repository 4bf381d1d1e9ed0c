// What a package source hands over: a file on this disk and what is to be expected of it.
#pragma once

#include <optional>
#include <string>

#include "Base/Path.h"

namespace installer {

struct AcquiredPackage {
  Path fileURL;                         // a local file, as a path
  std::optional<std::string> checksum;  // the expected digest; absent means that none can be verified
  bool skipGatekeeper = false;          // true for an image from the resources, which is never deleted either
  std::optional<std::string> version;

  friend bool operator==(const AcquiredPackage&, const AcquiredPackage&) = default;
};

}  // namespace installer
