// Plain files and disk images.
#include <fstream>
#include <sys/xattr.h>

#include "ImageTrailer.h"
#include "Signer.h"
#include "SuperBlob.h"
#include "Support/Programs.h"

namespace lab {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

// The parts of a plain file's signature are in its extended attributes.
Outcome<void> signPlainFile(const fs::path& file, const SigningOptions& options) {
  const Bytes content = contentOf(file);
  const auto blobs = makeSignature({"plain", content, 12, {}, 0, false},
                                   SigningIdentity(testAuthority(), LeafKind::valid), options);
  if (!blobs) return handOn(blobs);
  const std::pair<std::uint32_t, const char*> names[] = {{kCodeDirectorySlot, "CodeDirectory"},
                                                         {kFirstAlternateSlot, "CodeRequirements-1"},
                                                         {kRequirementsSlot, "CodeRequirements"},
                                                         {kSignatureSlot, "CodeSignature"}};
  for (const auto& [slot, name] : names) {
    if (!blobs->contains(slot)) continue;
    const Bytes& blob = blobs->at(slot);
    const std::string attribute = std::string("user.com.apple.cs.") + name;
    if (::setxattr(file.c_str(), attribute.c_str(), blob.data(), blob.size(), 0) != 0)
      return refuse("no room");
  }
  return {};
}

TEST_F(Programs, APlainFileCarriesItsSignatureInExtendedAttributes) {
  SigningOptions options = bothDigests();
  options.time = currentTime();
  const Workshop roomy("/dev/shm");  // most file systems can't store such large attributes
  const fs::path file = roomy.write("script", viewOf("#!/bin/sh\n"));
  if (!signPlainFile(file, options)) GTEST_SKIP() << "no file system here has room for so large attributes";
  EXPECT_EQ(verifyTeam(file).status, 0) << verifyTeam(file).text;
  EXPECT_EQ(verifyTeam(file, "OTHERTEAM0").status, 3);
  ASSERT_EQ(::removexattr(file.c_str(), "user.com.apple.cs.CodeRequirements-1"), 0);
  expectRefused(file, "the signer signed other code directories than are present");
  ASSERT_TRUE(signPlainFile(file, options));
  std::ofstream(file, std::ios::app) << "echo owned\n";
  expectRefused(file, "signature doesn't cover the code up to its end");
}

TEST_F(Programs, ASignedImageIsAcceptedAndTheSourceIsNamed) {
  const fs::path image = signedImage();
  EXPECT_EQ(verifyTeam(image).status, 0) << verifyTeam(image).text;
  const ProgramResult result = assess(image);
  EXPECT_EQ(result.status, 0) << result.text;
  EXPECT_THAT(result.text, HasSubstr(": accepted\nsource=Developer ID of the test authority \"Tests Root\""));
  EXPECT_THAT(result.text, HasSubstr("origin=Developer ID Application: Tests (KELOTEAM01)"));
  EXPECT_THAT(result.text, HasSubstr("notarization and revocation can't be evaluated on this machine"));
  EXPECT_THAT(spctl({"--assess", "--verbose=4", "--type", "open", "--context", "context:primary-signature",
                     image.string()})
                  .text,
              HasSubstr("origin=Developer ID Application: Tests (KELOTEAM01)"));
  EXPECT_EQ(spctlWithoutHostFile(
                {"--assess", "--type", "open", "--context", "context:primary-signature", image.string()})
                .status,
            3);
}

TEST_F(Programs, AnImageOfTheLabsOwnBuilderIsSignedAndChecked) {
  const fs::path app = signedApp();
  const fs::path image = workshop.folder() / "Built.dmg";
  workshop.write("volume/read me.txt", viewOf("hello"));
  fs::rename(app, workshop.folder() / "volume/A.app");
  const ProgramResult built =
      runProgram(SIGNATURE_TESTS_LAB_DISKIMAGE,
                 {"--volume-name", "Built", (workshop.folder() / "volume").string(), image.string()});
  ASSERT_EQ(built.status, 0) << built.text;
  expectRefused(image, "code object is not signed at all");
  workshop.sign(image);
  EXPECT_EQ(verifyTeam(image).status, 0) << verifyTeam(image).text;
  EXPECT_EQ(assess(image).status, 0) << assess(image).text;
  for (const std::uint64_t offset : {std::uint64_t{5000}, fs::file_size(image) - 20}) {
    flipByte(image, offset);
    EXPECT_EQ(assess(image).status, 3) << "at " << offset;
    flipByte(image, offset);
  }
}

TEST_F(Programs, EveryRegionOfAnImageIsChecked) {
  const fs::path image = signedImage();
  const Bytes good = contentOf(image);
  const ImageTrailer trailer = readImageTrailer(good).value();
  const std::uint64_t trailerAt = good.size() - UDIFTrailer::kSize;
  for (const std::uint64_t offset :
       {std::uint64_t{0}, trailer.dataForkLength - 1, trailer.plistOffset, trailer.signatureOffset - 1,
        trailer.signatureOffset + 200, trailerAt + 12, trailerAt + 80, trailerAt + 303, trailerAt + 311,
        trailerAt + 500}) {
    writeFile(image, good);
    flipByte(image, offset);
    EXPECT_EQ(verifyCode(image).status, 1) << "at " << offset;
    EXPECT_EQ(assess(image).status, 3) << "at " << offset;
  }
}

TEST_F(Programs, BytesBetweenAnImagesPartsAreRefused) {
  const fs::path image = signedImage();
  Bytes bytes = contentOf(image);
  bytes.insert(bytes.end() - 512, 16, 0);
  writeFile(image, bytes);
  expectRefused(image, "isn't between property list and trailer");
}

TEST_F(Programs, WhatIsntASignedImageIsRejected) {
  const fs::path app = signedApp();
  const struct {
    fs::path path;
    const char* source;
  } rows[] = {{workshop.diskImage("plain.dmg"), "source=no usable signature"},
              {app, "source=not a disk image"},
              {app / "Contents/MacOS/helper", "source=not a disk image"},
              {workshop.write("text", viewOf("x")), "source=no usable signature"},
              {workshop.folder() / "missing", "source=No such file"}};
  for (const auto& row : rows) {
    const ProgramResult result = assess(row.path);
    EXPECT_EQ(result.status, 3) << row.path;
    EXPECT_THAT(result.text, HasSubstr(row.source)) << row.path;
  }
}

TEST_F(Programs, AnImageWithoutTimestampOrDeveloperIDIsRejected) {
  SigningOptions unstamped;
  unstamped.stamped = false;
  const fs::path image = signedImage(LeafKind::valid, unstamped);
  EXPECT_EQ(verifyCode(image).status, 0);
  EXPECT_EQ(assess(image).status, 3);
  EXPECT_THAT(assess(image).text, HasSubstr("source=Developer ID without a secure timestamp"));
  workshop.signAdHoc(image);
  EXPECT_EQ(verifyCode(image).status, 0);
  EXPECT_THAT(assess(image).text, HasSubstr("source=no usable signature (ad hoc)"));
  workshop.sign(image, LeafKind::selfSigned);
  EXPECT_EQ(assess(image).status, 3);
  workshop.sign(image, LeafKind::expired);
  EXPECT_EQ(assess(image).status, 3);
  workshop.sign(image, LeafKind::wrongTeam);
  EXPECT_EQ(assess(image).status, 0) << "the team isn't this question";
}

TEST_F(Programs, OnlyThePrimarySignatureOfWhatIsOpenedCanBeAssessed) {
  const std::string image = signedImage().string();
  const std::vector<std::vector<std::string>> lines{
      {"--assess", "--type", "execute", "--context", "context:primary-signature", image},
      {"--assess", "--type", "open", image},
      {"--assess", "--type", "open", "--context", "other", image},
      {"--assess", "--type", "open", "--context", "context:primary-signature"},
      {"--type", "open", "--context", "context:primary-signature", image},
      {"--assess", "--nonsense", image},
      {}};
  for (const auto& line : lines) EXPECT_EQ(spctl(line).status, 2) << testing::PrintToString(line);
}

}  // namespace
}  // namespace lab
