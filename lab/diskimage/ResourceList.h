// The property list of a UDIF image: its block tables, in order, as a resource fork. Pure; any thread.
#pragma once

#include <span>
#include <string>

#include "plist/plist.h"

#include "diskimage/BlockTable.h"

namespace lab {

std::string resourceList(std::span<const BlockTable> tables);

// The list as XML. Frees `list`.
std::string xmlOf(plist_t list);

}  // namespace lab
