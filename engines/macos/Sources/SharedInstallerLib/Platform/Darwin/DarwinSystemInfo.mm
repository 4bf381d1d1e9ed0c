// `SystemInfo` and `SystemPaths`, from system calls and fixed paths.
#import <Foundation/Foundation.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "Base/POSIX/FileTree.h"
#import "Platform/Darwin/DarwinFoundation.h"
#include "Platform/Darwin/DarwinServices.h"

namespace installer::darwin {

namespace {

class DarwinSystemInfo final : public SystemInfo {
 public:
  std::string machineField() override {
    utsname names{};
    if (uname(&names) != 0) return {};
    return names.machine;
  }

  std::string operatingSystemVersionString() override {
    @autoreleasepool {
      return text([NSProcessInfo processInfo].operatingSystemVersionString);
    }
  }

  std::uint32_t userIdentifier() override { return getuid(); }
  std::uint32_t groupIdentifier() override { return getgid(); }
  std::int32_t processIdentifier() override { return getpid(); }
};

}  // namespace

std::unique_ptr<SystemInfo> makeSystemInfo() {
  return std::make_unique<DarwinSystemInfo>();
}

SystemPaths systemPaths() {
  @autoreleasepool {
    SystemPaths paths;
    paths.applications = "/Applications";
    paths.volumes = "/Volumes";
    paths.home = text(NSHomeDirectory());
    paths.temporaryDirectory = text([NSFileManager defaultManager].temporaryDirectory.path);
    paths.workingDirectory = currentDirectory();
    paths.hdiutil = "/usr/bin/hdiutil";
    paths.codesign = "/usr/bin/codesign";
    paths.spctl = "/usr/sbin/spctl";
    paths.ditto = "/usr/bin/ditto";
    paths.xattr = "/usr/bin/xattr";
    paths.chown = "/usr/sbin/chown";
    paths.rm = "/bin/rm";
    paths.lsregister =
        "/System/Library/Frameworks/CoreServices.framework/Versions/A/Frameworks/LaunchServices.framework/"
        "Versions/A/Support/lsregister";
    paths.open = "/usr/bin/open";
    return paths;
  }
}

}  // namespace installer::darwin
