#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "BlobWriter.h"
#include "RequirementBlob.h"
#include "RequirementEvaluator.h"
#include "RequirementText.h"
#include "Support/Workshop.h"

namespace lab {
namespace {

const Bytes kHash(20, 0xAB);
const std::string kHashText = "H\"abababababababababababababababababababab\"";

// Code signed by the tests' authority.
RequirementSubject subject() {
  RequirementSubject code;
  code.identifier = "com.example.app";
  code.cdhashes = {kHash};
  const TestAuthority& authority = testAuthority();
  const auto add = [&](const X509Pointer& certificate) {
    unsigned char* der = nullptr;
    const int size = i2d_X509(certificate.get(), &der);
    code.certificates.push_back(Certificate::readDER({der, static_cast<std::size_t>(size)}).value());
    OPENSSL_free(der);
  };
  add(authority.leaf(LeafKind::valid).certificate);
  for (const X509Pointer& issuer : authority.issuers(LeafKind::valid)) add(issuer);
  code.anchor = AnchorKind::testAuthority;
  static const Json kInfo =
      readPropertyList(
          viewOf("<plist><dict><key>CFBundleVersion</key><string>10.2</string><key>on</key><true/>"
                 "<key>off</key><false/></dict></plist>"))
          .value();
  code.info = &kInfo;
  return code;
}

enum class Verdict { met, unmet, notJudged };

struct Row {
  std::string text;
  Verdict verdict;
};

Verdict judge(const Requirement& requirement) {
  const auto result = meets(requirement, subject());
  if (!result) return Verdict::notJudged;
  return *result ? Verdict::met : Verdict::unmet;
}

const std::vector<Row>& rows() {
  using enum Verdict;
  static const std::vector<Row> kRows{
      {"anchor apple generic", met},
      {"anchor apple", unmet},
      {"anchor apple generic and certificate leaf[subject.OU] = KELOTEAM01", met},
      {"anchor apple generic and certificate leaf[subject.OU] = \"KELOTEAM01\"", met},
      {"anchor apple generic and certificate leaf[subject.OU] = OTHERTEAM0", unmet},
      {"certificate 0[subject.OU] = KELOTEAM01", met},
      {"certificate leaf[subject.OU]=KELOTEAM*", met},
      {"certificate leaf[subject.OU] = *TEAM01", met},
      {"certificate leaf[subject.OU] = *TEAM*", met},
      {"certificate leaf[subject.OU] = \"KELO*\"", unmet},
      {"certificate leaf[subject.OU] = kelo*", unmet},
      {"certificate leaf[subject.OU]", met},
      {"certificate leaf[subject.OU] exists", met},
      {"certificate leaf[subject.OU] /* exists */", met},
      {"certificate root[subject.OU] absent", met},
      {"certificate leaf[subject.OU] absent", unmet},
      {"certificate root[subject.OU] exists", unmet},
      {"certificate leaf[field.1.2.840.113635.100.6.1.13]", met},
      {"certificate 1[field.1.2.840.113635.100.6.2.6] exists", met},
      {"certificate 1[field.1.2.840.113635.100.6.1.13]", unmet},
      {"certificate leaf[field.1.2.840.113635.100.6.1.13] absent", unmet},
      {"certificate -1[subject.CN] = \"Tests Root\"", met},
      {"certificate anchor[subject.CN] = \"Tests Root\"", met},
      {"anchor[subject.CN] = \"Tests Root\"", met},
      {"certificate -3[subject.OU] = KELOTEAM01", met},
      {"certificate 7[subject.OU]", unmet},
      {"identifier com.example.app", met},
      {"identifier \"com.example.app\"", met},
      {"identifier = \"com.example.other\"", unmet},
      {"identifier 0x636f6d2e6578616d706c652e617070", met},
      {"identifier \"0x636f6d2e6578616d706c652e617070\"", unmet},
      {"identifier 0x63ff", unmet},
      {"cdhash " + kHashText, met},
      {"cdhash H\"0000000000000000000000000000000000000000\"", unmet},
      {"certificate leaf = " + kHashText, unmet},
      {"not anchor apple", met},
      {"!anchor apple generic", unmet},
      {"! ! anchor apple generic", met},
      {"never or always", met},
      {"never and always or always", met},
      {"never and (always or always)", unmet},
      {"always && never || always", met},
      {"info[CFBundleVersion] >= \"10.1\"", met},
      {"info[CFBundleVersion] < \"9.9\"", unmet},
      {"info[CFBundleVersion] > \"10.10\"", unmet},
      {"info[on]", met},
      {"info[off]", unmet},
      {"info[missing] absent", met},
      {"entitlement[anything]", unmet}};
  return kRows;
}

TEST(RequirementText, Rows) {
  for (const Row& row : rows()) {
    const auto parsed = parseRequirement(row.text);
    ASSERT_TRUE(parsed) << row.text << ": " << parsed.error().reason;
    EXPECT_EQ(judge(*parsed), row.verdict) << row.text;
  }
}

TEST(RequirementText, WhatCantBeJudgedIsNeverAPass) {
  using enum Verdict;
  const Row unclear[] = {{"notarized", notJudged},          {"not notarized", notJudged},
                         {"anchor trusted", notJudged},     {"always and notarized", notJudged},
                         {"never or notarized", notJudged}, {"notarized and never", unmet},
                         {"notarized or always", met},      {"certificate leaf trusted", notJudged}};
  for (const Row& row : unclear) {
    const auto parsed = parseRequirement(row.text);
    ASSERT_TRUE(parsed) << row.text << ": " << parsed.error().reason;
    EXPECT_EQ(judge(*parsed), row.verdict) << row.text;
  }
}

TEST(RequirementText, RefusesWhatDoesntParseToItsEnd) {
  const std::vector<std::string> texts{"",
                                       "anchor apple generic and certificate leaf[subject.OU] = ",
                                       "anchor apple generic and certificate leaf[subject.OU] = AB CD",
                                       "anchor apple generic and certificate leaf[subject.OU] = AB\"CD",
                                       "anchor apple generic and certificate leaf[subject.OU] = \"AB",
                                       "anchor apple generic and certificate leaf[subject.OU] = A'B",
                                       "anchor apple generic and",
                                       "identifier 0x",
                                       "identifier 0x123",
                                       "identifier 0xzz",
                                       "anchor",
                                       "and anchor apple",
                                       "(anchor apple",
                                       "anchor apple)",
                                       "certificate leaf[issuer.CN] = x",
                                       "certificate leaf",
                                       "certificate x[subject.OU]",
                                       "certificate 99999999999[subject.OU]",
                                       "cdhash H\"ab\"",
                                       "cdhash H\"zz\"",
                                       "cdhash abc",
                                       "identifier",
                                       "identifier .",
                                       "platform =",
                                       "/* never ends",
                                       "info[",
                                       std::string(200, '(') + "always" + std::string(200, ')'),
                                       std::string(1000, '!') + "always",
                                       std::string(100000, ' ')};
  for (const std::string& text : texts) EXPECT_FALSE(parseRequirement(text)) << text.substr(0, 60);
}

TEST(RequirementBlob, CompiledRowsMeanTheSame) {
  for (const Row& row : rows()) {
    const Bytes blob = writeRequirementBlob(parseRequirement(row.text).value());
    const auto read = readRequirementBlob(blob);
    ASSERT_TRUE(read) << row.text << ": " << read.error().reason;
    EXPECT_EQ(judge(*read), row.verdict) << row.text;
  }
}

TEST(RequirementBlob, ReadsTheFormThatSignaturesCarry) {
  // anchor apple generic and certificate leaf[subject.OU] = KELOTEAM01, encoded by hand.
  BlobWriter expression;
  expression.number(1);
  expression.number(6);
  expression.number(15);
  expression.number(11);
  expression.number(0);
  expression.number(10);
  expression.append(viewOf("subject.OU"));
  expression.alignTo(4);
  expression.number(1);
  expression.number(10);
  expression.append(viewOf("KELOTEAM01"));
  expression.alignTo(4);
  const Bytes blob = blobOf(0xfade0c00, expression.take());
  EXPECT_EQ(judge(readRequirementBlob(blob).value()), Verdict::met);
  const Bytes set = writeRequirementSet({{kDesignatedType, blob}});
  const auto found = findRequirement(set, kDesignatedType);
  ASSERT_TRUE(found && *found);
  EXPECT_TRUE(equal(**found, blob));
  EXPECT_FALSE(*findRequirement(writeRequirementSet({}), kDesignatedType));
}

TEST(RequirementBlob, RefusesWhatIsMalformed) {
  const Bytes good =
      writeRequirementBlob(parseRequirement("anchor apple generic and identifier abc").value());
  for (std::size_t length = 0; length < good.size(); ++length)
    EXPECT_FALSE(readRequirementBlob(ByteView(good).first(length))) << length;
  const auto blobOfNumbers = [](std::initializer_list<std::uint32_t> numbers) {
    BlobWriter writer;
    for (const std::uint32_t number : numbers) writer.number(number);
    return blobOf(0xfade0c00, writer.take());
  };
  EXPECT_FALSE(readRequirementBlob(blobOfNumbers({2, 1}))) << "another kind";
  EXPECT_FALSE(readRequirementBlob(blobOfNumbers({1, 99}))) << "an unknown operation";
  EXPECT_FALSE(readRequirementBlob(blobOfNumbers({1, 1, 1}))) << "bytes behind the end";
  EXPECT_FALSE(readRequirementBlob(blobOfNumbers({1, 2, 0xffffffff, 0}))) << "an endless string";
  EXPECT_FALSE(readRequirementBlob(blobOfNumbers({1, 8, 4, 0}))) << "a short hash";
  EXPECT_FALSE(readRequirementBlob(blobOfNumbers({1, 10, 0, 77}))) << "an unknown match";
  BlobWriter deep;
  deep.number(1);
  for (int i = 0; i < 100000; ++i) deep.number(9);
  deep.number(1);
  EXPECT_FALSE(readRequirementBlob(blobOf(0xfade0c00, deep.take()))) << "nested without end";
}

TEST(RequirementEvaluator, AFieldThatStandsThereTwiceMeansNothing) {
  // Built with OpenSSL: a leaf with two organizational units.
  const KeyedCertificate valid = testAuthority().leaf(LeafKind::valid);
  const X509Pointer twice = own(X509_dup(valid.certificate.get()));
  X509_NAME_add_entry_by_txt(X509_get_subject_name(twice.get()), "OU", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>("SECOND"), -1, -1, 0);
  X509_sign(twice.get(), valid.key.get(), EVP_sha256());
  unsigned char* der = nullptr;
  const int size = i2d_X509(twice.get(), &der);
  RequirementSubject code;
  code.certificates.push_back(Certificate::readDER({der, static_cast<std::size_t>(size)}).value());
  OPENSSL_free(der);
  EXPECT_EQ(code.certificates.front().subject("OU").size(), 2U);
  EXPECT_FALSE(*meets(parseRequirement("certificate leaf[subject.OU] = SECOND").value(), code));
  EXPECT_FALSE(*meets(parseRequirement("certificate leaf[subject.OU] = KELOTEAM01").value(), code));
}

}  // namespace
}  // namespace lab
