#pragma once

#include "Base/POSIX/PropertyListReader.h"
#include "Platform/PropertyList.h"

namespace installer {

class LinuxPropertyList : public PropertyList {
 public:
  Result<Json> parse(std::string_view bytes) override { return readPropertyList(bytes); }
};

}  // namespace installer
