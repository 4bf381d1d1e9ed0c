#include "Support/SimulatedMachine.h"

#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "Support/PropertyListText.h"

namespace installer::test {

namespace {

SystemPaths macOSPaths() {
  return {.applications = "/Applications",
          .volumes = "/Volumes",
          .home = "/Users/tester",
          .temporaryDirectory = "/private/tmp/tester",
          .workingDirectory = "/Users/tester/work",
          .hdiutil = "/usr/bin/hdiutil",
          .codesign = "/usr/bin/codesign",
          .spctl = "/usr/sbin/spctl",
          .ditto = "/usr/bin/ditto",
          .xattr = "/usr/bin/xattr",
          .chown = "/usr/sbin/chown",
          .rm = "/bin/rm",
          .lsregister =
              "/System/Library/Frameworks/CoreServices.framework/Versions/A/Frameworks/"
              "LaunchServices.framework/Versions/A/Support/lsregister",
          .open = "/usr/bin/open"};
}

// Removes a leading "[...] ", which may contain brackets, from `line` and returns it; absent when there is
// none.
std::optional<std::string> takeTag(std::string& line) {
  int depth = 0;
  for (std::size_t at = 0; at < line.size(); ++at) {
    depth += line[at] == '[' ? 1 : line[at] == ']' ? -1 : 0;
    if (depth == 0 && (at == 0 || line.compare(at, 2, "] ") != 0)) return std::nullopt;
    if (depth > 0) continue;
    auto tag = line.substr(1, at - 1);
    line.erase(0, at + 2);
    return tag;
  }
  return std::nullopt;
}

// "[time] [WARN] [file:line function] message" -> "WARN message". A line of another form, such as the rest of
// a message with a line break, is unchanged.
std::string withoutStamp(const std::string& line) {
  auto rest = line;
  if (!takeTag(rest)) return line;
  const auto second = takeTag(rest);
  if (!second) return line;
  if (*second != "WARN" && *second != "ERROR") return "INFO " + rest;
  return takeTag(rest) ? *second + " " + rest : line;
}

bool isOpeningLine(const std::string& line) {
  return line == "INFO Logging initialized for Kelo WebInstaller" || line.starts_with("INFO System: ") ||
         line.starts_with("INFO Architecture: ");
}

bool isThere = false;

}  // namespace

SimulatedMachine::SimulatedMachine(std::uint64_t seed)
    : paths{macOSPaths()},
      dispatch{seed},
      files{faults},
      streams{dispatch},
      programs{dispatch, files, faults},
      verdicts{files},
      images{files, programs},
      propertyList{faults},
      bundles{files, propertyList, resources},
      workspace{bundles, faults},
      runningApps{dispatch},
      administrator{dispatch, files, faults},
      network{dispatch, files, faults, paths.temporaryDirectory},
      signals{dispatch},
      machine_{.paths = paths,
               .files = files,
               .streams = streams,
               .processes = programs,
               .sessions = network,
               .dispatch = dispatch,
               .bundles = bundles,
               .propertyList = propertyList,
               .workspace = workspace,
               .runningApplications = runningApps,
               .administratorScripts = administrator,
               .systemInfo = systemInfo,
               .digest = digest,
               .signals = signals} {
  // With two machines, a test of one could use the process-wide values of the other.
  if (std::exchange(isThere, true)) throw std::logic_error{"one simulated machine at a time"};
  for (const auto& folder :
       {paths.applications, paths.temporaryDirectory, joined(paths.home, "Library"), resources}) {
    files.addDirectory(folder);
  }
  installTools();
  installMachine(&machine_);
}

SimulatedMachine::~SimulatedMachine() {
  isThere = false;
  dispatch.shutDown();
  network.shutDown();
  installMachine(nullptr);
}

void SimulatedMachine::startNextProcess() {
  dispatch.runUntilIdle();
  ++systemInfo.process;
  streams.forgetOutput();
  installMachine(&machine_);
}

void startAfresh(SimulatedMachine& machine, std::uint64_t seed) {
  std::destroy_at(&machine);
  std::construct_at(&machine, seed);
}

void SimulatedMachine::installTools() {
  images.installTool(paths.hdiutil);
  verdicts.installTools(programs, paths.codesign, paths.spctl);
  programs.on(paths.xattr).exits(0);
  programs.on(paths.open).exits(0);
  programs.on(paths.ditto).does([this](const Arguments& arguments) {
    const bool good = arguments.size() >= 2 &&
                      files.copyItem(arguments[arguments.size() - 2], arguments.back()).has_value();
    return ProgramExit{good ? 0 : 1, "", good ? "" : "ditto: can't copy\n"};
  });
  programs.on(paths.lsregister).does([this](const Arguments& arguments) {
    if (arguments.size() == 2 && arguments[0] == "-u") workspace.unregisterPath(arguments[1]);
    return ProgramExit{};
  });
}

void SimulatedMachine::addApp(const Path& path, const AppBundle& app) {
  files.addDirectory(path);
  auto information = Json::object();
  if (app.identifier) information["CFBundleIdentifier"] = *app.identifier;
  if (app.version) information["CFBundleShortVersionString"] = *app.version;
  if (app.executable) {
    information["CFBundleExecutable"] = *app.executable;
    const auto executable = joined(joined(path, "Contents/MacOS"), *app.executable);
    files.addFile(executable, app.executableBytes);
    files.setExecutable(executable, true);
  }
  if (app.infoPlist) files.addFile(joined(path, "Contents/Info.plist"), propertyListText(information));
  if (app.appStoreReceipt) files.addFile(joined(path, "Contents/_MASReceipt/receipt"));
}

void SimulatedMachine::addRegisteredApp(const Path& path, const AppBundle& app) {
  addApp(path, app);
  if (app.identifier) workspace.addRegistration(*app.identifier, path);
}

void SimulatedMachine::setConfiguration(std::string_view jsonText) {
  files.addFile(joined(resources, "installer_config.json"), jsonText);
}

void SimulatedMachine::runAsRoot() {
  systemInfo.user = 0;
  systemInfo.group = 0;
  files.setRunsAsRoot(true);
}

Path SimulatedMachine::logFile() const {
  return joined(paths.home, "Library/Logs/Kelo-Desk-Installer/webinstall.log");
}

Lines SimulatedMachine::logLines() {
  dispatch.runUntilIdle();
  Lines lines;
  if (!files.exists(logFile())) return lines;
  for (const auto& line : linesOf(files.read(logFile()))) {
    auto bare = withoutStamp(line);
    if (!isOpeningLine(bare)) lines.push_back(std::move(bare));
  }
  return lines;
}

Lines SimulatedMachine::logLines(std::string_view containing) {
  auto lines = logLines();
  std::erase_if(lines, [containing](const std::string& line) { return line.find(containing) == line.npos; });
  return lines;
}

}  // namespace installer::test
