// Compares files with the digests in their seals, several at once.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "CodeResources.h"

namespace lab {

class SealedContents {
 public:
  // `seal` is of the kind `file` and outlives this object. Nothing is read yet.
  void add(std::filesystem::path file, std::string relative, const ResourceSeal& seal);

  // The failure of the first such file in the order of the additions, whichever thread reads it.
  Outcome<void> check() const;

 private:
  struct SealedFile {
    std::filesystem::path path;
    std::string relative;  // to the bundle's base
    const ResourceSeal* seal;
  };

  static Outcome<void> check(const SealedFile& file, Bytes& piece);

  std::vector<SealedFile> files_;
};

}  // namespace lab
