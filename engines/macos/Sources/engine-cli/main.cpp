#include <cstdlib>
#include <string>
#include <vector>

#include "EngineCLI.h"
#include "Platform/Host.h"
#include "Platform/Machine.h"

int main(int argc, char** argv) {
  installer::installMachine(&installer::makeHostMachine());
  const auto exitCode = installer::runEngineCLI({argv, argv + argc});
  // Nothing is destroyed, because the listener or a worker may still run.
  std::_Exit(exitCode);
}
