// The services of this host that need no header of their own. Unless a class says otherwise it holds no
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
#include "Platform/FileSystem.h"
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

// Registered applications, kept in a file of the machine's Library. An application that was copied
// into the folder by hand isn't known until it is registered.
class LinuxWorkspace : public Workspace {
 public:
  // `bundles` outlives this.
  LinuxWorkspace(Path registryFile, Bundles& bundles)
      : registry_{std::move(registryFile)}, bundles_{bundles} {}

  // The most recently registered bundle that still exists; if none exists, the most recently registered one.
  std::optional<Path> applicationPath(const std::string& bundleIdentifier) override;
  // A bundle without an identifier can't be registered, and what was known of its path is forgotten.
  void registerBundle(const Path& path) override;

 private:
  ApplicationRegistry registry_;
  Bundles& bundles_;
};

// Files and volumes by the system's own calls. Trees are walked by descriptor, never by a path that
// could be swapped for a link meanwhile; a path with a NUL inside is refused instead of being cut there.
//
// LinuxFileSystem.cpp answers questions and reads and writes whole files, +Copy copies and moves, +Remove
// removes, +Walk lists and enumerates.
class LinuxFileSystem : public FileSystem {
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
  [[nodiscard]] Result<> moveItem(const Path& source, const Path& destination) override;
  [[nodiscard]] Result<> removeItem(const Path& path) override;
  [[nodiscard]] Result<std::unique_ptr<FileLock>> tryLock(const Path& path) override;
  bool clearLeftovers(const Path& path) override;
  [[nodiscard]] Result<> createDirectory(const Path& path, Intermediates intermediates) override;

  // A link at `path` is replaced, not followed.
  [[nodiscard]] Result<std::string> readFile(const Path& path) override;
  [[nodiscard]] Result<> writeFile(const Path& path, std::string_view bytes) override;

  [[nodiscard]] Result<std::unique_ptr<FileReader>> openForReading(const Path& path) override;
  [[nodiscard]] Result<std::unique_ptr<FileAppender>> openForAppending(const Path& path) override;

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
  // The engine asks for "arm64", which is what macOS calls the architecture that Linux calls "aarch64".
  std::string machineField() override;
  // Such as "Debian GNU/Linux 12 (bookworm), Linux 6.1.0".
  std::string operatingSystemVersionString() override;
  std::uint32_t userIdentifier() override;
  std::uint32_t groupIdentifier() override;
  std::int32_t processIdentifier() override;
  bool isRunning(std::int32_t process) override;
};

// Starts programs in process groups of their own, so that a Ctrl-C at the terminal reaches the engine alone
// and not a helper in the middle of its work.
class LinuxProcessLauncher : public ProcessLauncher {
 public:
  // A descendant that keeps the program's output open delays the answer for a moment at most: once the
  // program has ended, reading stops when the output falls silent.
  [[nodiscard]] Result<ProgramExit> run(const Path& program, const std::vector<std::string>& arguments,
                                        CapturedOutput captured) override;
  [[nodiscard]] Result<> launch(const Path& program, const std::vector<std::string>& arguments) override;
};

// The two script sources that the engine uses, understood to the letter and run by an administrator's shell.
class LinuxAdministratorScripts : public AdministratorScripts {
 public:
  explicit LinuxAdministratorScripts(AdministratorPrompt prompt) : prompt_{std::move(prompt)} {}

  // Knows a handler `runCommand` that runs its argument, and one `do shell script "..."` statement, both
  // "with administrator privileges"; null for any other source.
  //
  // A script's first command asks the person; the granted shell lives as long as the script. The error
  // dictionary has -128 for a dismissed prompt, otherwise the command's exit status, and what was printed
  // under "NSAppleScriptErrorMessage".
  std::unique_ptr<AdministratorScript> make(const std::string& source) override;

 private:
  AdministratorPrompt prompt_;
};

// Running applications by way of /proc: a process whose executable is in the "Contents/MacOS" of a bundle
// is an instance of that bundle. Scripts count by the script's own place.
//
// A machine ends at its root: what runs from a bundle outside belongs to another machine, of which there may
// be several on one box, and is neither found nor ended here.
//
// Seen are the processes of the current user, or everybody's for root; never this process itself, and never
// one that has ended and only waits to be collected.
class LinuxRunningApplications : public RunningApplications {
 public:
  // `bundles` outlives this. `root` is a path without links in it.
  LinuxRunningApplications(Bundles& bundles, Path root) : bundles_{bundles}, root_{std::move(root)} {}

  // A bundle says who it is by its Info.plist as it is now; one that is gone from the disk says nothing.
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

// HTTP over TLS on this host. Takes what it needs from `settings`: the extra certificate authority, the
// address overrides and the temporary directory, which exists.
std::unique_ptr<URLSessions> makeLinuxURLSessions(const LinuxHostSettings& settings);

}  // namespace installer
