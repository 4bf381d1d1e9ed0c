// The paths of this machine that the engine uses. A plain record; the host fills it before anything else
// runs, and it is constant afterwards. No other file of the engine contains such a path.
#pragma once

#include "Base/Path.h"

namespace installer {

struct SystemPaths {
  Path applications;        // the folder that apps are installed into, without a trailing slash
  Path volumes;             // the folder of the mount points of disk images
  Path home;                // the current user's home; logs are below its Library/Logs
  Path temporaryDirectory;  // downloads and staging of log bundles; exists
  Path workingDirectory;    // of the process at its start; the base of relative arguments

  // Programs, each an absolute path. A program may be missing; starting it is then a launch error.
  Path hdiutil;
  Path codesign;
  Path spctl;
  Path ditto;
  Path xattr;
  Path chown;
  Path rm;
  Path lsregister;
  Path open;
};

}  // namespace installer
