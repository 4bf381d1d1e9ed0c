#include "Models/AppInfo.h"

#include "Platform/Machine.h"

namespace installer {

Path AppInfo::tempFilePath() const {
  return joined(machine().paths.temporaryDirectory, tempFileName);
}

}  // namespace installer
