#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>

#include "Anchors.h"
#include "Support/Workshop.h"

namespace lab {
namespace {

class HostFile : public testing::Test {
 protected:
  // A host with `text` as its linux_host.json, in `place`.
  Anchors anchors(const std::string& text, const std::string& place = "linux_host.json") {
    std::filesystem::create_directories(workshop.folder() / "programs");
    std::ofstream(workshop.folder() / place) << text;
    return Anchors::ofHost(workshop.folder() / "programs");
  }

  void SetUp() override {
    std::filesystem::copy_file(std::string(SIGNATURE_TESTS_HOST) + "/trusting/authority/root.pem",
                               workshop.folder() / "root.pem");
  }

  Workshop workshop;
};

TEST_F(HostFile, NamesATestAuthorityRelativeToItself) {
  const Anchors found = anchors(R"({"testAuthority": "root.pem"})");
  ASSERT_TRUE(found.testAuthority());
  EXPECT_EQ(found.testAuthority()->displayName(), "Tests Root");
  EXPECT_EQ(found.kindOf(*found.testAuthority()), AnchorKind::testAuthority);
  EXPECT_EQ(found.warning(), "");
}

TEST_F(HostFile, NamesATimestampAuthorityThatSignsNoCode) {
  const Anchors found = anchors(R"({"timestampAuthority": "root.pem"})");
  ASSERT_TRUE(found.timestampAuthority());
  EXPECT_EQ(found.kindOf(*found.timestampAuthority(), Purpose::timestamp), AnchorKind::timestampAuthority);
  EXPECT_FALSE(found.kindOf(*found.timestampAuthority()));
  EXPECT_EQ(found.warning(), "");
}

TEST_F(HostFile, IsNotReadForRootsThatAreGiven) {
  const auto given = Anchors::withRoots(workshop.folder() / "root.pem", {});
  ASSERT_TRUE(given);
  EXPECT_EQ(given->kindOf(*given->testAuthority()), AnchorKind::testAuthority);
  EXPECT_FALSE(given->timestampAuthority());
  const auto stamping = Anchors::withRoots({}, workshop.folder() / "root.pem");
  ASSERT_TRUE(stamping);
  EXPECT_FALSE(stamping->kindOf(*stamping->timestampAuthority()));
  EXPECT_FALSE(Anchors::withRoots(workshop.folder() / "missing.pem", {}));
}

TEST_F(HostFile, BesideTheProgramCountsToo) {
  EXPECT_TRUE(anchors(R"({"testAuthority": "../root.pem"})", "programs/linux_host.json").testAuthority());
}

TEST_F(HostFile, MayBeDER) {
  const auto root = Certificate::readFile(workshop.folder() / "root.pem").value();
  writeFile(workshop.folder() / "root.der", root.der());
  EXPECT_TRUE(anchors(R"({"testAuthority": "root.der"})").testAuthority());
}

TEST_F(HostFile, WithoutTheKeyThereIsNone) {
  for (const char* text :
       {"{}", R"({"testAuthority": null})", R"({"testAuthority": ""})", R"({"other": "root.pem"})"}) {
    const Anchors found = anchors(text);
    EXPECT_FALSE(found.testAuthority()) << text;
    EXPECT_EQ(found.warning(), "") << text;
  }
  EXPECT_FALSE(Anchors::ofHost("/nowhere/programs").testAuthority());
}

TEST_F(HostFile, ThatCantBeUsedAddsNothingAndSaysSo) {
  for (const char* text : {"not JSON", "[]", R"({"testAuthority": 7})", R"({"testAuthority": "missing.pem"})",
                           R"({"testAuthority": "linux_host.json"})", R"({"timestampAuthority": 7})",
                           R"({"timestampAuthority": "missing.pem"})"}) {
    const Anchors found = anchors(text);
    EXPECT_FALSE(found.testAuthority() || found.timestampAuthority()) << text;
    EXPECT_NE(found.warning(), "") << text;
  }
}

// Sets a variable of this process's environment and restores it at the end.
class Environment {
 public:
  Environment(const char* name, const std::string& value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    ::setenv(name, value.c_str(), 1);
  }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;
  ~Environment() {
    if (old_) ::setenv(name_, old_->c_str(), 1);
    if (!old_) ::unsetenv(name_);
  }

 private:
  const char* name_;
  std::optional<std::string> old_;
};

TEST(Anchors, AnOrdinaryBuildCantBeTalkedIntoATestAuthority) {
  const Workshop workshop;
  const auto file = workshop.machO("code");
  workshop.sign(file);
  const std::string hostFile = std::string(SIGNATURE_TESTS_HOST) + "/trusting/linux_host.json";
  const std::string root = std::string(SIGNATURE_TESTS_HOST) + "/trusting/authority/root.pem";
  EXPECT_EQ(codesignWithoutHostFile({"--verify", "-vv", file.string()}).status, 1);
  std::filesystem::copy_file(hostFile, workshop.folder() / "linux_host.json");
  {
    const Environment key("testAuthority", hostFile);
    const Environment shouted("TEST_AUTHORITY", root);
    const Environment host("LINUX_HOST_JSON", hostFile);
    const Environment certificates("SSL_CERT_FILE", root);
    const Environment home("HOME", workshop.folder());
    const Environment here("PWD", workshop.folder());
    EXPECT_EQ(codesignWithoutHostFile({"--verify", "-vv", file.string()}).status, 1);
  }
  EXPECT_EQ(codesignWithoutHostFile({"--verify", "--test-authority", root, file.string()}).status, 2);
  EXPECT_EQ(verifyCode(file).status, 0);
}

}  // namespace
}  // namespace lab
