// Results of lab-fixture, opened with hdiutil like in the engine.
#include <nlohmann/json.hpp>

#include "Support.h"
#include "fixtures/AppImage.h"
#include "fixtures/OfflineInstaller.h"
#include "support/BundleInfo.h"
#include "support/Files.h"

namespace lab {
namespace {

using test::contentOf;
using test::modeOf;
using test::namesIn;
using test::transcriptOf;
using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

class Fixture : public test::ProgramTest {
 protected:
  AppPlan plan(Variants variants = {}) const { return {catalog[0], "2.0", 1000, std::move(variants)}; }

  // Makes an image of the plan and attaches it.
  std::vector<std::string> volumeOf(const AppPlan& made) const {
    const auto image = makeAppImage(made, {}, folder / "app.dmg");
    EXPECT_TRUE(image) << image.error();
    const auto attached = lab({"hdiutil", "attach", folder / "app.dmg"});
    EXPECT_EQ(attached.status, 0) << attached.diagnostics;
    return namesIn(volumes / "Kelo Brenna");
  }

  OfflineInstallerPlan installerPlan() const {
    OfflineInstallerPlan installer;
    installer.engine = write("engine-cli", "#!/bin/sh\n", 0755);
    installer.programs = LAB_PROGRAMS;
    installer.machine = machine;
    installer.payloadBytes = 1000;
    return installer;
  }
  const fs::path resources = folder / "out/Kelo-Desk-Installer.app/Contents/Resources";
  nlohmann::json packages() const {
    return nlohmann::json::parse(contentOf(resources / "packages/packages.json"));
  }
};

TEST_F(Fixture, BundleComesThroughItsImageUnchanged) {
  ASSERT_TRUE(makeAppBundle(plan(), folder));
  EXPECT_THAT(volumeOf(plan()), ElementsAre("Applications", "Brenna.app"));
  EXPECT_EQ(transcriptOf(volumes / "Kelo Brenna/Brenna.app"), transcriptOf(folder / "Brenna.app"));
  EXPECT_EQ(fs::read_symlink(volumes / "Kelo Brenna/Applications"), "/Applications");
}

TEST_F(Fixture, BundleSaysWhatItIs) {
  const auto bundle = makeAppBundle(plan(), folder);
  ASSERT_TRUE(bundle) << bundle.error();
  EXPECT_EQ(bundleString(*bundle, "CFBundleIdentifier"), "com.kelo.brenna.mac");
  EXPECT_EQ(bundleString(*bundle, "CFBundleShortVersionString"), "2.0");
  EXPECT_EQ(bundleString(*bundle, "CFBundleName"), "Kelo Brenna");
  EXPECT_EQ(modeOf(*bundle / "Contents/MacOS" / bundleString(*bundle, "CFBundleExecutable").value_or("?")),
            0755U);
  EXPECT_EQ(fs::file_size(*bundle / "Contents/Resources/payload.bin"), 1000U);
  EXPECT_FALSE(makeAppBundle(plan(), folder)) << "the path already exists";
}

TEST_F(Fixture, OddBundlesAreOddInTheirWay) {
  struct Row {
    Variant variant;
    std::optional<std::string> identifier;
    std::optional<std::string> version;
    bool receipt;
  };
  const std::vector<Row> rows{
      {Variant::otherIdentifier, "com.kelo.brenna.mac.fed", "2.0", false},
      {Variant::strangeIdentifier, "com.example.stranger", "2.0", false},
      {Variant::noVersion, "com.kelo.brenna.mac", std::nullopt, false},
      {Variant::garbageInfo, std::nullopt, std::nullopt, false},
      {Variant::noInfo, std::nullopt, std::nullopt, false},
      {Variant::appStore, "com.kelo.brenna.mac", "2.0", true},
  };
  for (const Row& row : rows) {
    const auto bundle = makeAppBundle(plan({row.variant}), folder);
    ASSERT_TRUE(bundle) << bundle.error();
    EXPECT_EQ(bundleString(*bundle, "CFBundleIdentifier"), row.identifier);
    EXPECT_EQ(bundleString(*bundle, "CFBundleShortVersionString"), row.version);
    EXPECT_EQ(fs::exists(*bundle / "Contents/_MASReceipt/receipt"), row.receipt);
    fs::remove_all(*bundle);
  }
}

TEST_F(Fixture, OddImagesAreOddInTheirWay) {
  struct Row {
    Variant variant;
    std::vector<std::string> names;
  };
  const std::vector<Row> rows{
      {Variant::noBundle, {"Applications", "Read me.txt"}},
      {Variant::twoBundles, {"Another.app", "Applications", "Yet Another.app"}},
      {Variant::secondBundleRight, {"Another.app", "Applications", "Brenna.app"}},
      {Variant::escapingLink, {"Applications", "Brenna.app", "way out"}},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(volumeOf(plan({row.variant})), row.names);
    ASSERT_EQ(lab({"hdiutil", "detach", "disk4"}).status, 0);
  }
  ASSERT_TRUE(makeAppImage(plan({Variant::notAnImage}), {}, folder / "app.dmg"));
  EXPECT_EQ(lab({"hdiutil", "attach", folder / "app.dmg"}).status, 1);
}

TEST_F(Fixture, OfflineInstallerListsItsPackagesWithDigestAndSize) {
  const auto made = makeOfflineInstaller(installerPlan(), folder / "out");
  ASSERT_TRUE(made) << made.error();
  EXPECT_THAT(namesIn(folder / "out"), ElementsAre("Kelo-Desk-Installer.app"));
  EXPECT_THAT(namesIn(machine), testing::IsSupersetOf({"Applications", "Library", "Volumes", "tmp"}));
  for (const CatalogApp& app : catalog) {
    const auto entry = packages()[std::string{app.id}];
    const fs::path image = resources / "packages" / app.packageName;
    EXPECT_EQ(entry["destination"], app.packageName);
    EXPECT_EQ(entry["version"], "1.0");
    EXPECT_EQ(entry["checksum"], *sha256OfFile(image));
    EXPECT_EQ(entry["size"], fs::file_size(image));
    EXPECT_EQ(entry["checksumAlgorithm"], "sha256");
  }
  const auto host = nlohmann::json::parse(contentOf(resources / "linux_host.json"));
  EXPECT_EQ(host, (nlohmann::json{{"root", machine.string()}, {"programs", "programs"}}));
  EXPECT_EQ(
      run({resources / "programs/hdiutil", "attach", resources / "packages/tolvi_installer.dmg"}).status, 0);
  EXPECT_TRUE(fs::exists(volumes / "Kelo Tolvi/Kelo Tolvi.app"));
}

TEST_F(Fixture, OddPackagesAreOddInTheirWay) {
  auto installer = installerPlan();
  installer.variants["brenna"] = {Variant::wrongDigest};
  installer.variants["tolvi"] = {Variant::noDigest};
  installer.variants["rulo"] = {Variant::unknownAlgorithm, Variant::missing};
  installer.variants["galdivane"] = {Variant::notListed};
  ASSERT_TRUE(makeOfflineInstaller(installer, folder / "out"));
  const auto made = packages();
  EXPECT_NE(made["brenna"]["checksum"], *sha256OfFile(resources / "packages/brenna_installer.dmg"));
  EXPECT_FALSE(made["tolvi"].contains("checksum"));
  EXPECT_EQ(made["rulo"]["checksumAlgorithm"], "blake3");
  EXPECT_FALSE(fs::exists(resources / "packages/rulo_installer.dmg"));
  EXPECT_FALSE(made.contains("galdivane"));
  EXPECT_TRUE(fs::exists(resources / "packages/galdi_installer.dmg"));
}

TEST_F(Fixture, OfflineInstallerReplacesAnOlderOneAndSparesItOnFailure) {
  auto installer = installerPlan();
  installer.apps = {catalog[0]};
  ASSERT_TRUE(makeOfflineInstaller(installer, folder / "out"));
  installer.version = "2.0";
  ASSERT_TRUE(makeOfflineInstaller(installer, folder / "out"));
  EXPECT_EQ(packages()["brenna"]["version"], "2.0");
  installer.engine = folder / "absent";
  EXPECT_FALSE(makeOfflineInstaller(installer, folder / "out"));
  EXPECT_THAT(namesIn(folder / "out"), ElementsAre("Kelo-Desk-Installer.app"));
  EXPECT_EQ(packages()["brenna"]["version"], "2.0");
}

TEST_F(Fixture, IsSignedBeforeItIsPackedAndDigested) {
  auto installer = installerPlan();
  installer.apps = {catalog[0]};
  installer.signing.bundle = {
      write("sign-bundle", "#!/bin/sh\necho signed > \"$1/Contents/signature\"\n", 0755)};
  installer.signing.image = {
      write("sign-image", "#!/bin/sh\nprintf '' >> \"$1\"\necho \"$1\" >> \"${0%/*}/signed\"\n", 0755)};
  ASSERT_TRUE(makeOfflineInstaller(installer, folder / "out"));
  const fs::path image = resources / "packages/brenna_installer.dmg";
  EXPECT_EQ(packages()["brenna"]["checksum"], *sha256OfFile(image));
  ASSERT_EQ(lab({"hdiutil", "attach", image}).status, 0);
  EXPECT_EQ(contentOf(volumes / "Kelo Brenna/Brenna.app/Contents/signature"), "signed\n");
  EXPECT_THAT(contentOf(folder / "signed"), HasSubstr("brenna_installer.dmg"));
  installer.signing.image = {write("refuse", "#!/bin/sh\necho no such identity; exit 1\n", 0755)};
  const auto refused = makeOfflineInstaller(installer, folder / "out");
  ASSERT_FALSE(refused);
  EXPECT_THAT(refused.error(), HasSubstr("no such identity"));
}

TEST_F(Fixture, CommandLineSaysWhatIsWrongWithIt) {
  struct Row {
    test::Words words;
    const char* reason;
  };
  const std::vector<Row> rows{
      {{}, "A subcommand is required"},
      {{"frobnicate"}, "'frobnicate' isn't understood"},
      {{"app", "--output", "x"}, "--app is required"},
      {{"app", "--app", "nothing", "--output", "x"}, "no app \"nothing\""},
      {{"app", "--app", "brenna"}, "--output is required"},
      {{"app", "--app", "brenna", "--variant", "purple", "--output", "x"}, "no variant \"purple\""},
      {{"app", "--app", "brenna", "--payload", "12k", "--output", "x"}, "--payload = 12k"},
      {{"app", "--app"}, "--app: 1 required TEXT missing"},
      {{"app", "--engine", "x"}, "'--engine' isn't understood"},
      {{"offline-installer", "--output", "x"}, "--engine is required"},
      {{"offline-installer", "--engine", "e", "--programs", "p", "--machine", "m", "--output", "x",
        "--variant", "brenna"},
       "isn't of the form APP=NAME"},
      {{"offline-installer", "--engine", "e", "--programs", "p", "--machine", "m", "--output", "x", "--apps",
        "brenna,x"},
       "no app \"x\""},
  };
  const std::string program = std::string{LAB_PROGRAMS} + "/lab-fixture";
  for (Row row : rows) {
    row.words.insert(row.words.begin(), program);
    const auto done = run(row.words);
    EXPECT_EQ(done.status, 64) << testing::PrintToString(row.words);
    EXPECT_THAT(done.diagnostics, AllOf(HasSubstr(row.reason), HasSubstr("--help")));
  }
  const auto help = run({program, "app", "--help"});
  EXPECT_EQ(help.status, 0);
  for (const VariantName& name : variantNames()) EXPECT_THAT(help.output, HasSubstr(name.name));
}

}  // namespace
}  // namespace lab
