// The file that tells which application bundle is registered under which identifier. The host and the
// program lsregister share it.
//
// Any thread and any process: changes take a lock beside the file and replace the file in one step, so that
// readers never see half of one. Nothing but `remove` takes an entry away; a bundle that was deleted stays
// known. A file that can't be understood counts as empty, and the next change writes a good one.
#pragma once

#include <string>
#include <vector>

#include "Base/Error.h"
#include "Base/Path.h"

namespace installer {

struct RegisteredApplication {
  Path path;               // of the bundle, absolute, without a trailing slash
  std::string identifier;  // what the bundle said at its registration

  friend bool operator==(const RegisteredApplication&, const RegisteredApplication&) = default;
};

class ApplicationRegistry {
 public:
  // Its folder is made with the first entry.
  explicit ApplicationRegistry(Path file) : file_{std::move(file)} {}

  // Replaces what was known of that path; the entry is then the latest. A relative path is refused.
  [[nodiscard]] Result<> add(const RegisteredApplication& application);
  // An unknown path is a success.
  [[nodiscard]] Result<> remove(const Path& path);
  // Earliest registration first; empty when there is no file.
  std::vector<RegisteredApplication> applications() const;

 private:
  Path file_;
};

}  // namespace installer
