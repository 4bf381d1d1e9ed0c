// Small facts about the machine and the process. Any thread; constant while the process lives.
#pragma once

#include <cstdint>
#include <string>

namespace installer {

class SystemInfo {
 public:
  virtual ~SystemInfo() = default;
  virtual std::string machineField() = 0;                  // uname's `machine`, such as "arm64" or "x86_64"
  virtual std::string operatingSystemVersionString() = 0;  // the system's text for people
  virtual std::uint32_t userIdentifier() = 0;              // the real user's
  virtual std::uint32_t groupIdentifier() = 0;             // the real group's
  virtual std::int32_t processIdentifier() = 0;
};

}  // namespace installer
