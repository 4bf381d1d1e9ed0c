#include "Contract/MachineUnderTest.h"

#include <algorithm>
#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "Base/POSIX/FileDescriptor.h"
#include "Base/POSIX/HiddenSibling.h"
#include "Support/PropertyListText.h"

namespace installer::test {

void beginCopy(const Path& path) {
  const FileDescriptor folder{::open(parentFolder(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  const HiddenSibling sibling{folder.get(), lastPathComponent(path), kCopyPurpose};
  ::mkdirat(folder.get(), sibling.name(), 0755);
}

MachineUnderTest::Facts MachineUnderTest::facts() {
  utsname names{};
  EXPECT_EQ(::uname(&names), 0);
  const std::string machine = static_cast<const char*>(names.machine);
  return {machine == "aarch64" ? "arm64" : machine, ::getuid(), ::getgid(), ::getpid()};
}

Path Contract::lay(const std::string& name, const std::string& bytes) {
  const auto path = at(name);
  EXPECT_TRUE(files.createDirectory(parentFolder(path), FileSystem::Intermediates::create));
  EXPECT_TRUE(files.writeFile(path, bytes));
  return path;
}

Path Contract::layFolder(const std::string& name) {
  const auto path = at(name);
  EXPECT_TRUE(files.createDirectory(path, FileSystem::Intermediates::create));
  return path;
}

Path Contract::layBundle(const std::string& name, const std::string& identifier, const std::string& title) {
  lay(name + "/Contents/Info.plist",
      propertyListText(
          {{"CFBundleIdentifier", identifier}, {"CFBundleName", title}, {"CFBundleExecutable", "app"}}));
  return at(name);
}

std::string Contract::bytesOf(const Path& path) {
  return files.readFile(path).value_or("(unreadable)");
}

Lines Contract::treeOf(const Path& folder) {
  Lines names;
  files.enumerate(
      folder, HiddenEntries::visit,
      [&](const DirectoryEntry& entry) {
        const auto* const kind = entry.isSymbolicLink ? "@" : entry.isDirectory ? "/" : "";
        names.push_back(entry.path.substr(folder.size() + 1) + kind);
        return Descend::yes;
      },
      nullptr);
  std::ranges::sort(names);
  return names;
}

void Contract::turnUntil(const std::function<bool()>& done) {
  constexpr int kSlices = 3000;
  for (int slice = 0; slice < kSlices && !done(); ++slice) {
    machine.dispatch.runMainLoop(std::chrono::milliseconds{10});
  }
  EXPECT_TRUE(done());
}

}  // namespace installer::test
