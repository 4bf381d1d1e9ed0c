// The machine that this process runs on: one reference per service of the seam.
//
// The executable installs its host's machine once, at the start of `main`, for the life of the process. A
// test installs a simulated one for its own duration. Any thread may call `machine()` while a machine is
// installed.
#pragma once

#include "Platform/AdministratorScript.h"
#include "Platform/Bundles.h"
#include "Platform/Digest.h"
#include "Platform/Dispatch.h"
#include "Platform/FileSystem.h"
#include "Platform/ProcessLauncher.h"
#include "Platform/PropertyList.h"
#include "Platform/RunningApplications.h"
#include "Platform/Signals.h"
#include "Platform/StandardStreams.h"
#include "Platform/SystemInfo.h"
#include "Platform/SystemPaths.h"
#include "Platform/URLSession.h"
#include "Platform/Workspace.h"

namespace installer {

struct Machine {
  SystemPaths paths;
  FileSystem& files;
  StandardStreams& streams;
  ProcessLauncher& processes;
  URLSessions& sessions;
  Dispatch& dispatch;
  Bundles& bundles;
  PropertyList& propertyList;
  Workspace& workspace;
  RunningApplications& runningApplications;
  AdministratorScripts& administratorScripts;
  SystemInfo& systemInfo;
  Digest& digest;
  Signals& signals;
};

// Asserts that a machine is installed.
Machine& machine();

// Makes `installed` the machine of the process; null removes it. Process-wide values are destroyed first,
// while the old machine is still installed. No other thread may use the seam meanwhile. The caller keeps
// ownership.
void installMachine(Machine* installed);

}  // namespace installer
