// The services of this host without a separate header. Unless its comment says otherwise, a class has no
// state: any number may exist, on any thread.
#pragma once

#include <memory>
#include <utility>

#include "Base/POSIX/ApplicationRegistry.h"
#include "Base/POSIX/LinuxHostSettings.h"
#include "Base/Path.h"
#include "Platform/AdministratorScript.h"
#include "Platform/Bundles.h"
#include "Platform/Digest.h"
#include "Platform/POSIX/POSIXFileSystem.h"
#include "Platform/ProcessLauncher.h"
#include "Platform/PropertyList.h"
#include "Platform/RunningApplications.h"
#include "Platform/Signals.h"
#include "Platform/SystemInfo.h"
#include "Platform/URLSession.h"
#include "Platform/Workspace.h"

namespace installer {

// Bundles by their Info.plist.
class LinuxBundles : public Bundles {
 public:
  // `propertyList` outlives this.
  LinuxBundles(PropertyList& propertyList, std::optional<Path> resources)
      : propertyList_{propertyList}, resources_{std::move(resources)} {}

  std::shared_ptr<const Bundle> read(const Path& path) override;
  std::optional<Path> mainResources() override { return resources_; }

 private:
  PropertyList& propertyList_;
  std::optional<Path> resources_;
};

// The resources of the executable at `executable`: "Contents/Resources" of the bundle in whose
// "Contents/MacOS" it is, else its own folder.
Path resourcesOfExecutable(const Path& executable);

// Property lists by libplist.
class LinuxPropertyList : public PropertyList {
 public:
  [[nodiscard]] Result<Json> parse(std::string_view bytes) override;
};

// Registered applications, in a file of the machine's Library. An application that was copied into the folder
// by hand isn't found until it is registered.
class LinuxWorkspace : public Workspace {
 public:
  // `bundles` outlives this.
  LinuxWorkspace(Path registryFile, Bundles& bundles)
      : registry_{std::move(registryFile)}, bundles_{bundles} {}

  // The most recently registered bundle that still exists; if none exists, the most recently registered one.
  std::optional<Path> applicationPath(const std::string& bundleIdentifier) override;
  // A bundle without an identifier can't be registered; the earlier registration of its path is removed.
  void registerBundle(const Path& path) override;

 private:
  ApplicationRegistry registry_;
  Bundles& bundles_;
};

// Files and volumes by system calls. Trees are walked by descriptor, because a path could be replaced by a
// link meanwhile. A path with a NUL is refused, because system calls would cut it there.
//
// LinuxFileSystem.cpp has the queries and reads and writes whole files, +Copy copies, +Remove removes, +Walk
// lists and enumerates.
class LinuxFileSystem : public POSIXFileSystem {
 public:
  bool fileExists(const Path& path) override;
  bool directoryExists(const Path& path) override;
  bool isWritable(const Path& path) override;
  bool isExecutable(const Path& path) override;

  [[nodiscard]] Result<std::vector<std::string>> contentsOfDirectory(const Path& path) override;
  [[nodiscard]] Result<FileAttributes> attributes(const Path& path) override;

  // The hidden sibling is ".{name}.kelo-copy-{pid}". Permission bits are kept, but never set-id bits: a copy
  // belongs to the user who made it. Sockets, pipes and devices are refused.
  [[nodiscard]] Result<> copyItem(const Path& source, const Path& destination) override;
  [[nodiscard]] Result<> removeItem(const Path& path) override;
  bool clearLeftovers(const Path& path) override;
  [[nodiscard]] Result<> createDirectory(const Path& path, Intermediates intermediates) override;

  // A link at `path` is replaced, not followed.
  [[nodiscard]] Result<std::string> readFile(const Path& path) override;
  [[nodiscard]] Result<> writeFile(const Path& path, std::string_view bytes) override;

  [[nodiscard]] Result<std::unique_ptr<FileReader>> openForReading(const Path& path) override;

  bool enumerate(const Path& top, HiddenEntries hidden, const Visitor& visit,
                 const ErrorHandler& onError) override;

  std::optional<std::int64_t> volumeAvailableCapacity(const Path& path) override;
  std::optional<std::int64_t> fileSystemFreeSize(const Path& path) override;
};

// SHA-256 by the system's crypto library.
class LinuxDigest : public Digest {
 public:
  std::unique_ptr<SHA256> startSHA256() override;
};

// Facts about this machine and process.
class LinuxSystemInfo : public SystemInfo {
 public:
  // "arm64" for Linux's "aarch64": the engine compares with macOS's name.
  std::string machineField() override;
  // For example "Debian GNU/Linux 12 (bookworm), Linux 6.1.0".
  std::string operatingSystemVersionString() override;
  std::uint32_t userIdentifier() override;
  std::uint32_t groupIdentifier() override;
  std::int32_t processIdentifier() override;
};

// Starts each program in its own process group, so that a Ctrl-C at the terminal interrupts only the engine
// and not a program during its work.
class LinuxProcessLauncher : public ProcessLauncher {
 public:
  // A descendant that keeps the program's output open delays the result only briefly: after the program has
  // ended, reading stops when no more output arrives.
  [[nodiscard]] Result<ProgramExit> run(const Path& program, const std::vector<std::string>& arguments,
                                        CapturedOutput captured) override;
  [[nodiscard]] Result<> launch(const Path& program, const std::vector<std::string>& arguments) override;
};

// Accepts exactly the two script sources that the engine uses and runs them in an administrator's shell.
class LinuxAdministratorScripts : public AdministratorScripts {
 public:
  explicit LinuxAdministratorScripts(AdministratorPrompt prompt) : prompt_{std::move(prompt)} {}

  // Accepts a handler `runCommand` that runs its argument, and one `do shell script "..."` statement, both
  // "with administrator privileges"; null for any other source.
  //
  // A script's first command prompts the user; the granted shell exists as long as the script. The error
  // dictionary has -128 for a dismissed prompt, otherwise the command's exit status, and the printed text
  // under "NSAppleScriptErrorMessage".
  std::unique_ptr<AdministratorScript> make(const std::string& source) override;

 private:
  AdministratorPrompt prompt_;
};

// Running applications, from /proc: a process whose executable is in the "Contents/MacOS" of a bundle is an
// instance of that bundle. A script counts by the path of the script.
//
// Only bundles below `root` count: a computer can have several machines, and an application of another one is
// neither found nor ended.
//
// Lists the processes of the current user, or all processes for root, without this process and without
// zombies.
class LinuxRunningApplications : public RunningApplications {
 public:
  // `bundles` outlives this. `root` is a path without links in it.
  LinuxRunningApplications(Bundles& bundles, Path root) : bundles_{bundles}, root_{std::move(root)} {}

  // A bundle's identifier is read from its current Info.plist; a bundle that is gone from disk has none.
  std::vector<RunningApplication> instances(const std::string& bundleIdentifier) override;
  void terminate(const RunningApplication& application) override;       // SIGTERM
  void forceTerminate(const RunningApplication& application) override;  // SIGKILL

 private:
  Bundles& bundles_;
  const Path root_;
};

class LinuxDispatch;

// Requests to end: SIGINT, SIGTERM and SIGHUP.
class LinuxSignals : public Signals {
 public:
  explicit LinuxSignals(LinuxDispatch& dispatch) : dispatch_{dispatch} {}
  // A signal that was ignored when the process started (nohup, a shell's background job) stays ignored.
  void onTerminationRequest(Work handler) override;

 private:
  LinuxDispatch& dispatch_;
};

// HTTP over TLS on this host. Uses the extra certificate authority, the address overrides and the temporary
// directory of `settings`; the directory must exist.
std::unique_ptr<URLSessions> makeLinuxURLSessions(const LinuxHostSettings& settings);

}  // namespace installer
