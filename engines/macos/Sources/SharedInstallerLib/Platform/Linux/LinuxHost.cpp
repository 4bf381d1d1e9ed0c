#include "Platform/Linux/LinuxHost.h"

#include <cstdio>
#include <cstdlib>
#include <fmt/core.h>
#include <nlohmann/json.hpp>

#include "Base/POSIX/FileTree.h"
#include "Base/POSIX/ProcessStart.h"
#include "Platform/Host.h"
#include "Platform/Linux/Dispatch/LinuxDispatch.h"
#include "Platform/Linux/LinuxServices.h"
#include "Platform/Machine.h"
#include "Platform/POSIX/POSIXStandardStreams.h"

namespace installer {

namespace {

SystemPaths pathsOf(const LinuxHostSettings& settings) {
  const auto program = [&](std::string_view name) { return joined(settings.programs, name); };
  return {.applications = settings.applications(),
          .volumes = settings.volumes(),
          .home = settings.root,
          .temporaryDirectory = settings.temporaryDirectory(),
          .workingDirectory = currentDirectory(),
          .hdiutil = program("hdiutil"),
          .codesign = program("codesign"),
          .spctl = program("spctl"),
          .ditto = program("ditto"),
          .xattr = program("xattr"),
          .chown = "/bin/chown",
          .rm = "/bin/rm",
          .lsregister = program("lsregister"),
          .open = program("open")};
}

// Creates the missing folders. Failures are ignored: code that needs a folder gets and reports the same
// error.
void makeFolders(const LinuxHostSettings& settings) {
  for (const Path& folder : {settings.applications(), settings.volumes(), settings.temporaryDirectory()}) {
    (void)LinuxFileSystem{}.createDirectory(folder, FileSystem::Intermediates::create);
  }
}

// Resolves links and dots in the root, so that this process and the programs use the same path for an
// application.
LinuxHostSettings withTrueRoot(LinuxHostSettings settings) {
  const std::unique_ptr<char, decltype(&std::free)> root{::realpath(settings.root.c_str(), nullptr),
                                                         &std::free};
  if (root != nullptr) settings.root = root.get();
  return settings;
}

}  // namespace

struct LinuxHost::Services {
  Services(const LinuxHostSettings& settings, std::optional<Path> resources)
      : sessions{makeLinuxURLSessions(settings)},
        bundles{propertyList, std::move(resources)},
        workspace{settings.applicationRegistry(), bundles},
        runningApplications{bundles, settings.root},
        administratorScripts{settings.administrator},
        machine{.paths = pathsOf(settings),
                .files = files,
                .streams = streams,
                .processes = processes,
                .sessions = *sessions,
                .dispatch = dispatch,
                .bundles = bundles,
                .propertyList = propertyList,
                .workspace = workspace,
                .runningApplications = runningApplications,
                .administratorScripts = administratorScripts,
                .systemInfo = systemInfo,
                .digest = digest,
                .signals = signals} {}

  LinuxFileSystem files;
  POSIXStandardStreams streams;
  LinuxProcessLauncher processes;
  LinuxPropertyList propertyList;
  LinuxSystemInfo systemInfo;
  LinuxDigest digest;
  std::unique_ptr<URLSessions> sessions;
  LinuxBundles bundles;
  LinuxWorkspace workspace;
  LinuxRunningApplications runningApplications;
  LinuxAdministratorScripts administratorScripts;
  LinuxDispatch dispatch;  // destroyed before the services that its blocks use
  LinuxSignals signals{dispatch};
  Machine machine;
};

LinuxHost::LinuxHost(const LinuxHostSettings& settings, std::optional<Path> resources) {
  settleSignals();
  makeFolders(settings);
  services_ = std::make_unique<Services>(withTrueRoot(settings), std::move(resources));
}

LinuxHost::~LinuxHost() = default;

Machine& LinuxHost::machine() {
  return services_->machine;
}

Machine& makeHostMachine() {
  openMissingStreams();
  settleSignals();
  const Path resources = resourcesOfExecutable(executablePath());
  const auto settings = LinuxHostSettings::read(resources);
  if (!settings) {
    fmt::print(stderr, "engine-cli: {}\n", settings.error().localizedDescription);
    std::exit(kMalformedHostSettings);
  }
  return (new LinuxHost{*settings, resources})->machine();
}

}  // namespace installer
