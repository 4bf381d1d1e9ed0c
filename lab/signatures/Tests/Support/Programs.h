// A workshop with signed code, for the tests of the real executables.
#pragma once

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "SignatureWriter.h"
#include "Support/Workshop.h"

namespace lab {

inline SigningOptions bothDigests() {
  SigningOptions options;
  options.digests = {HashType::sha1, HashType::sha256};
  return options;
}

inline void expectRefused(const std::filesystem::path& path, const std::string& reason) {
  const ProgramResult result = verifyCode(path);
  EXPECT_EQ(result.status, 1) << result.text;
  EXPECT_THAT(result.text, testing::HasSubstr(reason));
}

class Programs : public testing::Test {
 protected:
  // A signed application.
  std::filesystem::path signedApp(MainExecutable kind = MainExecutable::universal) {
    const std::filesystem::path app = workshop.app("A.app", kind);
    workshop.sign(app, bothDigests());
    return app;
  }

  std::filesystem::path signedImage(LeafKind leaf = LeafKind::valid, SigningOptions options = {}) {
    const std::filesystem::path image = workshop.diskImage("I.dmg");
    workshop.sign(image, leaf, std::move(options));
    return image;
  }

  Workshop workshop;
};

}  // namespace lab
