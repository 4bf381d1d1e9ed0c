// The file of the registered application bundles and their identifiers. The host and the program lsregister
// share it.
//
// Any thread and any process: a change locks the file's folder and replaces the file atomically, so that
// readers never see a partial file. Only `remove` removes an entry; the entry of a deleted bundle stays. An
// invalid file counts as empty, and the next change writes a valid one.
#pragma once

#include <string>
#include <vector>

#include "Base/Error.h"
#include "Base/Path.h"

namespace installer {

struct RegisteredApplication {
  Path path;               // of the bundle, absolute, without a trailing slash
  std::string identifier;  // the bundle's own at its registration

  friend bool operator==(const RegisteredApplication&, const RegisteredApplication&) = default;
};

class ApplicationRegistry {
 public:
  // The first `add` creates the folder of `file`.
  explicit ApplicationRegistry(Path file) : file_{std::move(file)} {}

  // Replaces the entry of that path; the new entry is the latest. A relative path is refused.
  [[nodiscard]] Result<> add(const RegisteredApplication& application);
  // Succeeds for a path without an entry.
  [[nodiscard]] Result<> remove(const Path& path);
  // Earliest registration first; empty when there is no file.
  std::vector<RegisteredApplication> applications() const;

 private:
  Path file_;
};

}  // namespace installer
