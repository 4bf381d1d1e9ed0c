#include "open/Launch.h"

#include <system_error>
#include <unistd.h>

#include "Base/POSIX/Spawn.h"
#include "Base/Path.h"
#include "support/BundleInfo.h"

namespace lab {

namespace fs = std::filesystem;

OrReason<fs::path> mainExecutable(const fs::path& bundle) {
  const auto name = bundleString(bundle, "CFBundleExecutable");
  if (!name) return because("{} names no executable", bundle.string());
  if (!installer::isPlainFileName(*name))
    return because("{} names an executable outside itself", bundle.string());
  return bundle / "Contents" / "MacOS" / *name;
}

OrReason<> launchDetached(const fs::path& program) {
  if (chdir("/") != 0) return becauseOfErrno("/");
  const auto launched = installer::spawnDetached(program.string(), {});
  if (launched) return {};
  return because("{} can't be started: {}", program.string(),
                 std::generic_category().message(launched.error()));
}

}  // namespace lab
