// Signs files on disk: Mach-O files, bundles from the inside out, disk images.
#pragma once

#include <filesystem>
#include <map>

#include "Bundle.h"
#include "Outcome.h"
#include "SigningIdentity.h"

namespace lab {

class Signer {
 public:
  Signer(SigningIdentity identity, SigningOptions options)
      : identity_(std::move(identity)), options_(std::move(options)) {}

  // Replaces an existing signature. A file is written under another name and renamed. When a bundle fails,
  // its parts that were already signed stay signed.
  Outcome<void> sign(const std::filesystem::path& path) const;

 private:
  Outcome<void> file(const std::filesystem::path& path) const;
  Outcome<Bytes> machO(ByteView bytes, const std::string& identifier,
                       const std::map<std::uint32_t, ByteView>& outside) const;
  Outcome<Bytes> slice(ByteView bytes, const std::string& identifier,
                       const std::map<std::uint32_t, ByteView>& outside) const;
  Outcome<Bytes> diskImage(ByteView bytes, const std::string& identifier) const;
  Outcome<void> bundle(const Bundle& bundle) const;
  Outcome<void> bundleExecutable(const Bundle& bundle, const std::string& resources) const;
  Outcome<void> detached(const Bundle& bundle, ByteView code, const std::string& identifier,
                         const std::map<std::uint32_t, ByteView>& outside) const;

  SigningIdentity identity_;
  SigningOptions options_;
};

// Writes a file under another name beside `path` and renames it; an existing file's mode is kept.
Outcome<void> replaceFile(const std::filesystem::path& path, ByteView content);

}  // namespace lab
