// Facts about the simulated machine. A test may set each of them.
#pragma once

#include "Platform/SystemInfo.h"

namespace installer::test {

class SimulatedSystemInfo : public SystemInfo {
 public:
  std::string machine = "arm64";
  std::string operatingSystemVersion = "Version 14.5 (Build 23F79)";
  std::uint32_t user = 501;
  std::uint32_t group = 20;
  std::int32_t process = 4242;

  std::string machineField() override { return machine; }
  std::string operatingSystemVersionString() override { return operatingSystemVersion; }
  std::uint32_t userIdentifier() override { return user; }
  std::uint32_t groupIdentifier() override { return group; }
  std::int32_t processIdentifier() override { return process; }
};

}  // namespace installer::test
