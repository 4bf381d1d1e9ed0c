// Compares files with the digests in their seals, on several threads.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "CodeResources.h"

namespace lab {

class SealedContents {
 public:
  // `seal` has the kind `file` and must outlive this object. The file isn't read yet.
  void add(std::filesystem::path file, std::string relative, const ResourceSeal& seal);

  // The first failure in the order of the additions, independent of the threads.
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
