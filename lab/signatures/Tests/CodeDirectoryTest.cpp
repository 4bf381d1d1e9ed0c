#include <gtest/gtest.h>

#include "BlobWriter.h"
#include "CodeDirectory.h"
#include "PageHashes.h"
#include "SignatureWriter.h"
#include "SuperBlob.h"

namespace lab {
namespace {

const Bytes kCode(10000, 0x5A);

Bytes directoryBlob(std::uint8_t pageLog = 12, HashType type = HashType::sha256) {
  SigningOptions options;
  options.digests = {type};
  options.flags = kHardenedRuntimeFlag;
  SigningSubject subject;
  subject.identifier = "test.code";
  subject.code = kCode;
  subject.pageLog = pageLog;
  return makeSignature(subject, {}, options).value().at(kCodeDirectorySlot);
}

Bytes with(std::size_t offset, std::initializer_list<std::uint8_t> bytes) {
  Bytes blob = directoryBlob();
  std::copy(bytes.begin(), bytes.end(), blob.begin() + static_cast<std::ptrdiff_t>(offset));
  return blob;
}

TEST(CodeDirectory, ReadsItsFields) {
  const Bytes blob = directoryBlob();
  const auto directory = CodeDirectory::read(blob);
  ASSERT_TRUE(directory) << directory.error().reason;
  EXPECT_EQ(directory->identifier(), "test.code");
  EXPECT_EQ(directory->team(), "");
  EXPECT_EQ(directory->flags(), kHardenedRuntimeFlag | kAdHocFlag);
  EXPECT_EQ(directory->codeLimit(), 10000U);
  EXPECT_EQ(directory->pageCount(), 3U);
  EXPECT_EQ(directory->cdhash(), copyOf(digestOf(HashType::sha256, blob).bytes().first(20)));
  EXPECT_FALSE(directory->specialHash(1)) << "an all-zero digest means absent";
  EXPECT_TRUE(directory->specialHash(2));
  EXPECT_FALSE(directory->specialHash(9));
}

TEST(CodeDirectory, ChecksPagesWithEveryDigestAndPageSize) {
  for (const HashType type :
       {HashType::sha1, HashType::sha256, HashType::sha256Truncated, HashType::sha384}) {
    for (const std::uint8_t pageLog : std::initializer_list<std::uint8_t>{0, 9, 12, 14, 20}) {
      const Bytes blob = directoryBlob(pageLog, type);
      const auto directory = CodeDirectory::read(blob);
      ASSERT_TRUE(directory) << directory.error().reason;
      EXPECT_TRUE(checkPages(kCode, std::span(&*directory, 1))) << int{pageLog};
      for (const std::size_t changed : {std::size_t{0}, std::size_t{4096}, kCode.size() - 1}) {
        Bytes code = kCode;
        code[changed] ^= 1;
        EXPECT_FALSE(checkPages(code, std::span(&*directory, 1))) << int{pageLog} << " at " << changed;
      }
    }
  }
}

TEST(CodeDirectory, ChecksEveryDirectoryOfSeveral) {
  const Bytes strong = directoryBlob(12, HashType::sha256);
  Bytes weak = directoryBlob(14, HashType::sha1);
  weak.back() ^= 1;  // the last page's digest
  const std::vector<CodeDirectory> both{CodeDirectory::read(strong).value(),
                                        CodeDirectory::read(weak).value()};
  const auto checked = checkPages(kCode, both);
  ASSERT_FALSE(checked);
  EXPECT_EQ(checked.error().reason, "code has been modified (page 0 at offset 0x0, sha1)");
}

TEST(CodeDirectory, NamesTheFirstPageThatDiffersWhicheverThreadFindsIt) {
  const Bytes code(30 * 1024 * 1024 + 17, 1);
  SigningSubject subject;
  subject.identifier = "large";
  subject.code = code;
  SigningOptions options;
  options.digests = {HashType::sha1, HashType::sha256};
  const auto blobs = makeSignature(subject, {}, options).value();
  const std::vector<CodeDirectory> both{CodeDirectory::read(blobs.at(kCodeDirectorySlot)).value(),
                                        CodeDirectory::read(blobs.at(kFirstAlternateSlot)).value()};
  EXPECT_TRUE(checkPages(code, both));
  for (const std::size_t page : {std::size_t{0}, std::size_t{1023}, std::size_t{1024}, std::size_t{5000}}) {
    Bytes spoiled = code;
    for (std::size_t at = page * 4096; at < code.size(); at += 3000) spoiled[at] ^= 1;
    const auto checked = checkPages(spoiled, both);
    ASSERT_FALSE(checked);
    EXPECT_EQ(checked.error().reason,
              fmt::format("code has been modified (page {} at offset {:#x}, sha1)", page, page * 4096));
  }
}

TEST(CodeDirectory, RefusesCodeThatIsTooShort) {
  const Bytes blob = directoryBlob();
  const auto directory = CodeDirectory::read(blob).value();
  EXPECT_FALSE(checkPages(ByteView(kCode).first(9999), std::span(&directory, 1)));
}

TEST(CodeDirectory, RefusesWhatDoesntFitTogether) {
  const struct {
    const char* what;
    std::size_t offset;
    std::initializer_list<std::uint8_t> bytes;
  } rows[] = {{"magic", 0, {0}},
              {"length", 7, {0}},
              {"ancient version", 8, {0, 1, 0, 0}},
              {"hash table in front of the blob", 16, {0, 0, 0, 8}},
              {"hash table behind the blob", 16, {0, 0, 0xff, 0}},
              {"identifier outside", 20, {0x7f, 0, 0, 0}},
              {"huge count of special slots", 24, {0xff, 0xff, 0xff, 0xff}},
              {"huge count of pages", 28, {0xff, 0xff, 0xff, 0xff}},
              {"one page too few", 28, {0, 0, 0, 2}},
              {"limit that doesn't fit the count", 32, {0, 1, 0, 0}},
              {"digest size", 36, {20}},
              {"unknown digest", 37, {9}},
              {"tiny pages", 39, {1}},
              {"huge pages", 39, {40}},
              {"scattered code", 44, {0, 0, 0, 1}},
              {"team outside", 48, {0x7f, 0, 0, 0}},
              {"64-bit limit that doesn't fit", 56, {0, 0, 0, 9, 0, 0, 0, 0}}};
  for (const auto& row : rows) EXPECT_FALSE(CodeDirectory::read(with(row.offset, row.bytes))) << row.what;
}

TEST(CodeDirectory, KeepsAnIdentifierThatIsntUTF8AndShowsItEscaped) {
  Bytes blob = directoryBlob();
  blob[88] = 0xff;
  const auto directory = CodeDirectory::read(blob);
  ASSERT_TRUE(directory);
  EXPECT_EQ(printable(directory->identifier()), "\\xffest.code");
}

TEST(CodeDirectory, NamesFlags) {
  EXPECT_EQ(flagNames(0), "none");
  EXPECT_EQ(flagNames(0x20002), "adhoc,linker-signed");
  EXPECT_EQ(flagNames(0x10000), "runtime");
  EXPECT_EQ(flagNames(0x80000000), "0x80000000");
}

}  // namespace
}  // namespace lab
