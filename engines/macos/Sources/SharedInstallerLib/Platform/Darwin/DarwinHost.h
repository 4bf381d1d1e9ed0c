// The macOS machine: every service of the seam, each a thin translation to the system's own classes.
//
// A host owns its services; only tests destroy one. The thread that AppKit and Dispatch know as the main one
// is the main thread. Its constructor settles the signals.
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

  // As long as the host lives. The caller installs it.
  Machine& machine();

 private:
  struct Services;
  std::unique_ptr<Services> services_;
};

}  // namespace installer
