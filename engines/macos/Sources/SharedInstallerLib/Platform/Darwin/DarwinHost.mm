#include "Platform/Darwin/DarwinHost.h"

#include <nlohmann/json.hpp>

#include "Base/POSIX/ProcessStart.h"
#include "Platform/Darwin/DarwinServices.h"
#include "Platform/Host.h"
#include "Platform/Machine.h"
#include "Platform/POSIX/POSIXStandardStreams.h"

namespace installer {

struct DarwinHost::Services {
  std::unique_ptr<FileSystem> files = darwin::makeFileSystem();
  POSIXStandardStreams streams;
  std::unique_ptr<ProcessLauncher> processes = darwin::makeProcessLauncher();
  std::unique_ptr<URLSessions> sessions = darwin::makeURLSessions();
  std::unique_ptr<Dispatch> dispatch = darwin::makeDispatch();
  std::unique_ptr<Bundles> bundles = darwin::makeBundles();
  std::unique_ptr<PropertyList> propertyList = darwin::makePropertyList();
  std::unique_ptr<Workspace> workspace = darwin::makeWorkspace();
  std::unique_ptr<RunningApplications> runningApplications = darwin::makeRunningApplications();
  std::unique_ptr<AdministratorScripts> administratorScripts = darwin::makeAdministratorScripts();
  std::unique_ptr<SystemInfo> systemInfo = darwin::makeSystemInfo();
  std::unique_ptr<Digest> digest = darwin::makeDigest();
  std::unique_ptr<Signals> signals = darwin::makeSignals();

  Machine machine{.paths = darwin::systemPaths(),
                  .files = *files,
                  .streams = streams,
                  .processes = *processes,
                  .sessions = *sessions,
                  .dispatch = *dispatch,
                  .bundles = *bundles,
                  .propertyList = *propertyList,
                  .workspace = *workspace,
                  .runningApplications = *runningApplications,
                  .administratorScripts = *administratorScripts,
                  .systemInfo = *systemInfo,
                  .digest = *digest,
                  .signals = *signals};
};

DarwinHost::DarwinHost() {
  settleSignals();
  services_ = std::make_unique<Services>();
}

DarwinHost::~DarwinHost() = default;

Machine& DarwinHost::machine() {
  return services_->machine;
}

Machine& makeHostMachine() {
  openMissingStreams();
  static auto* const host = new DarwinHost;  // not destroyed at exit: a worker may still be using it
  return host->machine();
}

}  // namespace installer
