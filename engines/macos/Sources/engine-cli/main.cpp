#include <cstdlib>
#include <string>
#include <vector>

#include "EngineCLI.h"
#include "Platform/Linux/LinuxHost.h"
#include "Platform/Machine.h"

int main(int argc, char** argv) {
  installer::installMachine(&installer::makeLinuxMachine());
  const auto exitCode = installer::runEngineCLI({argv, argv + argc});
  // Nothing is destroyed: the listener or a worker may still be at work.
  std::_Exit(exitCode);
}
