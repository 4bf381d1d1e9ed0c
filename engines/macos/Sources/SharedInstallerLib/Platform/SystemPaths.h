// Where this machine keeps what the engine needs. A plain record, filled by the host before anything else
// runs and constant from then on. No other file of the engine spells such a path.
#pragma once

#include "Base/Path.h"

namespace installer {

struct SystemPaths {
  Path applications;        // the folder that apps are installed into, without a trailing slash
  Path home;                // the current user's home; logs are below its Library/Logs
  Path temporaryDirectory;  // downloads and staging of log bundles; exists
  Path workingDirectory;    // of the process at its start: where relative arguments begin

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
