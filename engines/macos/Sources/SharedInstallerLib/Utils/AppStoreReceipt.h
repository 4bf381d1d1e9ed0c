// What makes a copy an App Store copy: the receipt's existence. Its content is never read.
#pragma once

#include "Base/Path.h"
#include "Platform/Machine.h"

namespace installer {

inline bool hasAppStoreReceipt(const Path& bundlePath) {
  return machine().files.fileExists(joined(bundlePath, "Contents/_MASReceipt/receipt"));
}

}  // namespace installer
