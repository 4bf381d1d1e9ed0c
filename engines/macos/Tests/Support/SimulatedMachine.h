// A whole machine in memory, in virtual time. A test constructs it first.
//
// The constructor installs it as the machine of the process and the destructor removes it, so that
// process-wide values are new in each test. Only one can exist: a second one throws. The thread that
// constructs it is the main thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Machine.h"
#include "Support/FaultPlan.h"
#include "Support/SimulatedAdministrator.h"
#include "Support/SimulatedBundles.h"
#include "Support/SimulatedDigest.h"
#include "Support/SimulatedDispatch.h"
#include "Support/SimulatedFileSystem.h"
#include "Support/SimulatedImages.h"
#include "Support/SimulatedNetwork.h"
#include "Support/SimulatedPrograms.h"
#include "Support/SimulatedPropertyList.h"
#include "Support/SimulatedRunningApps.h"
#include "Support/SimulatedSignals.h"
#include "Support/SimulatedStreams.h"
#include "Support/SimulatedSystemInfo.h"
#include "Support/SimulatedVerdicts.h"
#include "Support/SimulatedWorkspace.h"

namespace installer::test {

using Lines = std::vector<std::string>;

// The bundle of `addApp`.
struct AppBundle {
  std::optional<std::string> identifier{};
  std::optional<std::string> version{};
  std::optional<std::string> executable = "app";  // named in Info.plist, in Contents/MacOS
  bool appStoreReceipt = false;
  bool infoPlist = true;  // false: no Info.plist
  std::string executableBytes = "binary";
};

class SimulatedMachine {
 public:
  // Seed 0 runs in the order of posting; another seed gives another, equally deterministic order.
  explicit SimulatedMachine(std::uint64_t seed = 0);
  SimulatedMachine(const SimulatedMachine&) = delete;
  SimulatedMachine& operator=(const SimulatedMachine&) = delete;
  ~SimulatedMachine();

  SystemPaths paths;  // of macOS; home "/Users/tester", temporary directory "/private/tmp/tester"
  Path resources = "/Volumes/Installer/Kelo-Desk-Installer.app/Contents/Resources";

  FaultPlan faults;
  SimulatedDispatch dispatch;
  SimulatedFileSystem files;
  SimulatedStreams streams;
  SimulatedPrograms programs;
  SimulatedVerdicts verdicts;
  SimulatedImages images;
  SimulatedPropertyList propertyList;
  SimulatedBundles bundles;
  SimulatedWorkspace workspace;
  SimulatedRunningApps runningApps;
  SimulatedAdministrator administrator;
  SimulatedNetwork network;
  SimulatedSystemInfo systemInfo;
  SimulatedDigest digest;
  SimulatedSignals signals;

  // Makes an application bundle at `path`. It isn't registered with the workspace.
  void addApp(const Path& path, const AppBundle& app);
  // The same, and registers it with its identifier.
  void addRegisteredApp(const Path& path, const AppBundle& app);
  // Writes `jsonText` as installer_config.json in the resources. Call before the engine reads it.
  void setConfiguration(std::string_view jsonText);
  void noResources() { bundles.setMainResources(std::nullopt); }
  // Continues as the next process on the same machine: runs what is ready and forgets process-wide values.
  void startNextProcess();
  // Makes the user root: uid and gid 0, and permissions don't apply.
  void runAsRoot();

  // The lines of the log file as "LEVEL message", for example "INFO Mounting DMG for Brenna at /x.dmg":
  // without timestamp and source location, INFO for a line without a level, without the logger's opening
  // lines. Runs all ready blocks first, so that the logger has written its lines.
  Lines logLines();
  Lines logLines(std::string_view containing);  // the lines that contain this text
  Path logFile() const;

 private:
  Machine machine_;

  void installTools();
};

// Replaces `machine` by a new one, for the next row of a table.
void startAfresh(SimulatedMachine& machine, std::uint64_t seed = 0);

}  // namespace installer::test
