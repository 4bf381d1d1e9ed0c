// The macOS machine: every service of the seam, each a thin translation to the system's classes.
//
// A host owns its services; only tests destroy one. The main thread is that of AppKit and Dispatch. The
// constructor sets the signal dispositions.
#pragma once

#include <memory>

namespace installer {

struct Machine;

class DarwinHost {
 public:
  DarwinHost();
  ~DarwinHost();
  DarwinHost(const DarwinHost&) = delete;
  DarwinHost& operator=(const DarwinHost&) = delete;

  // Valid as long as the host exists. The caller installs it.
  Machine& machine();

 private:
  struct Services;
  std::unique_ptr<Services> services_;
};

}  // namespace installer
