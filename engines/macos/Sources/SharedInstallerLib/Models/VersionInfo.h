// A package that is about to be fetched.
#pragma once

#include <string>

#include "Base/URL.h"

namespace installer {

struct VersionInfo {
  std::string version;  // empty when the metadata names none
  URL downloadURL;
  std::string checksum;  // always one that can be verified
};

}  // namespace installer
