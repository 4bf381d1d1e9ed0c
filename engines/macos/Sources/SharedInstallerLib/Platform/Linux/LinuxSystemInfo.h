// Facts about this machine and process.
#pragma once

#include "Platform/SystemInfo.h"

namespace installer {

class LinuxSystemInfo : public SystemInfo {
 public:
  // The engine asks for "arm64", which is what macOS calls the architecture that Linux calls "aarch64".
  std::string machineField() override;
  // Such as "Debian GNU/Linux 12 (bookworm), Linux 6.1.0".
  std::string operatingSystemVersionString() override;
  std::uint32_t userIdentifier() override;
  std::uint32_t groupIdentifier() override;
  std::int32_t processIdentifier() override;
  bool isRunning(std::int32_t process) override;
};

}  // namespace installer
