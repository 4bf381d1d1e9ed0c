// A whole machine in memory, in virtual time: the first thing in every test.
//
// Installs itself as the machine of the process at construction and takes itself away at destruction, so
// that process-wide values are fresh in each test. One at a time: a second one throws. The thread that
// constructs it is the main thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Machine.h"
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

// What `addApp` lays out.
struct AppBundle {
  std::optional<std::string> identifier{};
  std::optional<std::string> version{};
  std::optional<std::string> executable = "app";  // named in Info.plist and laid in Contents/MacOS
  bool appStoreReceipt = false;
  bool infoPlist = true;  // false: no Info.plist at all
  std::string executableBytes = "binary";
};

class SimulatedMachine {
 public:
  // Seed 0 runs in the order of posting; another seed chooses another order, the same one each time.
  explicit SimulatedMachine(std::uint64_t seed = 0);
  SimulatedMachine(const SimulatedMachine&) = delete;
  SimulatedMachine& operator=(const SimulatedMachine&) = delete;
  ~SimulatedMachine();

  SystemPaths paths;  // of macOS; home "/Users/tester", temporary directory "/private/tmp/tester"
  Path resources = "/Volumes/Installer/Kelo-Desk-Installer.app/Contents/Resources";

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

  // Lays an application bundle at `path`. It isn't registered with the workspace.
  void addApp(const Path& path, const AppBundle& app);
  // Likewise, and registers it under its identifier.
  void addRegisteredApp(const Path& path, const AppBundle& app);
  // Writes `jsonText` as installer_config.json among the resources, before the engine reads it.
  void setConfiguration(std::string_view jsonText);
  void noResources() { bundles.setMainResources(std::nullopt); }
  // The user is root: refused nothing, uid and gid 0.
  void runAsRoot();

  // The lines of the log file as "LEVEL message", such as "INFO Mounting DMG for Brenna at /x.dmg": the
  // level INFO where the line has none, timestamp and source location taken off. Runs what is ready first,
  // so that the logger has written it. The logger's own opening lines are left out.
  Lines logLines();
  Lines logLines(std::string_view containing);  // those that contain this text
  Path logFile() const;

 private:
  Machine machine_;

  void installTools();
};

// Ends `machine` and starts another one in its place, for the next row of a table.
void startAfresh(SimulatedMachine& machine, std::uint64_t seed = 0);

}  // namespace installer::test
