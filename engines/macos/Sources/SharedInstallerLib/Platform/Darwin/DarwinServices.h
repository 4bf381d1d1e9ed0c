// One factory per service, defined in the file of the service's name. Plain C++, so that the Objective-C
// classes of a service stay private to its file.
#pragma once

#include <memory>

#include "Platform/Machine.h"

namespace installer::darwin {

SystemPaths systemPaths();
std::unique_ptr<FileSystem> makeFileSystem();
std::unique_ptr<ProcessLauncher> makeProcessLauncher();
std::unique_ptr<URLSessions> makeURLSessions();
std::unique_ptr<Dispatch> makeDispatch();
std::unique_ptr<Bundles> makeBundles();
std::unique_ptr<PropertyList> makePropertyList();
std::unique_ptr<Workspace> makeWorkspace();
std::unique_ptr<RunningApplications> makeRunningApplications();
std::unique_ptr<AdministratorScripts> makeAdministratorScripts();
std::unique_ptr<SystemInfo> makeSystemInfo();
std::unique_ptr<Digest> makeDigest();
std::unique_ptr<Signals> makeSignals();

}  // namespace installer::darwin
