// Bundles with a changed, added, removed or moved part.
#include <functional>
#include <sys/xattr.h>

#include "Support/Programs.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

struct Spoiling {
  const char* name;
  std::function<void(const fs::path&)> spoil;  // gets the path of Contents
  const char* reason;
};

class SpoiledBundle : public testing::TestWithParam<Spoiling> {};

TEST_P(SpoiledBundle, IsRefused) {
  const Workshop workshop;
  for (const MainExecutable kind : {MainExecutable::universal, MainExecutable::script}) {
    const fs::path app = workshop.app("A.app", kind);
    workshop.sign(app);
    ASSERT_EQ(verifyCode(app).status, 0) << verifyCode(app).text;
    GetParam().spoil(app / "Contents");
    expectRefused(app, GetParam().reason);
    fs::remove_all(app);
  }
}

void writeText(const fs::path& path, const char* text) {
  fs::create_directories(path.parent_path());
  writeFile(path, viewOf(text));
}

void relink(const fs::path& path, const char* target) {
  fs::remove(path);
  fs::create_symlink(target, path);
}

const std::vector<Spoiling>& spoilings() {
  static const std::vector<Spoiling> kSpoilings{
      {"changed resource", [](const fs::path& c) { flipByte(c / "Resources/data.txt", 0); },
       "a sealed resource has been modified: Resources/data.txt"},
      {"changed deep resource", [](const fs::path& c) { flipByte(c / "Resources/deep/er/more.txt", 0); },
       "modified: Resources/deep/er/more.txt"},
      {"changed resource before an added one",
       [](const fs::path& c) {
         flipByte(c / "Resources/data.txt", 0);
         writeText(c / "Resources/data.txt.evil", "x");
       },
       "modified: Resources/data.txt"},
      {"changed resource after an added one",
       [](const fs::path& c) {
         flipByte(c / "Resources/data.txt", 0);
         writeText(c / "Resources/a.evil", "x");
       },
       "a file has been added: Resources/a.evil"},
      {"added resource", [](const fs::path& c) { writeText(c / "Resources/new.txt", "x"); },
       "a file has been added: Resources/new.txt"},
      {"added beside the executable", [](const fs::path& c) { writeText(c / "MacOS/libevil.dylib", "x"); },
       "a file has been added: MacOS/libevil.dylib"},
      {"added to the base", [](const fs::path& c) { writeText(c / "evil", "x"); },
       "a file has been added: evil"},
      {"added inside of a folder named .DS_Store",
       [](const fs::path& c) { writeText(c / "Resources/.DS_Store/evil", "x"); },
       "a file has been added: Resources/.DS_Store/evil"},
      {"added to the root", [](const fs::path& c) { writeText(c / "../evil", "x"); },
       "unsealed contents in the bundle's root: evil"},
      {"added to the signature's folder",
       [](const fs::path& c) { writeText(c / "_CodeSignature/evil", "x"); },
       "stray file among the signature's: evil"},
      {"folder for a stapled ticket", [](const fs::path& c) { writeText(c / "CodeResources/evil", "x"); },
       "neither a stapled ticket nor"},
      {"receipt with company", [](const fs::path& c) { writeText(c / "_MASReceipt/evil", "x"); },
       "unsealed contents in _MASReceipt: evil"},
      {"removed resource", [](const fs::path& c) { fs::remove(c / "Resources/data.txt"); },
       "a sealed resource is missing: Resources/data.txt"},
      {"changed link", [](const fs::path& c) { relink(c / "Resources/link.txt", "deep/er/more.txt"); },
       "a sealed link has been changed: Resources/link.txt"},
      {"added link", [](const fs::path& c) { fs::create_symlink("data.txt", c / "Resources/other"); },
       "a link has been added: Resources/other"},
      {"removed link", [](const fs::path& c) { fs::remove(c / "Resources/link.txt"); },
       "a sealed resource is missing: Resources/link.txt"},
      {"link turned into a file",
       [](const fs::path& c) {
         fs::remove(c / "Resources/link.txt");
         writeText(c / "Resources/link.txt", "data");
       },
       "a sealed link has become a file"},
      {"file turned into a link", [](const fs::path& c) { relink(c / "Resources/data.txt", "link.txt"); },
       "a sealed file has become a link"},
      {"changed Info.plist",
       [](const fs::path& c) {
         std::string text = textOf(contentOf(c / "Info.plist"));
         writeText(c / "Info.plist", (text + " ").c_str());
       },
       "Info.plist has been modified"},
      {"changed seal",
       [](const fs::path& c) {
         std::string text = textOf(contentOf(c / "_CodeSignature/CodeResources"));
         writeText(c / "_CodeSignature/CodeResources", (text + " ").c_str());
       },
       "resource seal has been modified"},
      {"removed seal", [](const fs::path& c) { fs::remove(c / "_CodeSignature/CodeResources"); },
       "signature seals something that is missing (slot 3)"},
      {"changed helper", [](const fs::path& c) { flipByte(c / "MacOS/helper", 0x900); },
       "nested code MacOS/helper: in architecture arm64: code has been modified"},
      {"removed framework", [](const fs::path& c) { fs::remove_all(c / "Frameworks/Kit.framework"); },
       "a sealed resource is missing: Frameworks/Kit.framework"},
      {"changed framework",
       [](const fs::path& c) { flipByte(c / "Frameworks/Kit.framework/Versions/A/Kit", 0x900); },
       "nested code Frameworks/Kit.framework: in architecture arm64: code has been modified"},
      {"added framework",
       [](const fs::path& c) {
         fs::copy(c / "Frameworks/Kit.framework", c / "Frameworks/Two.framework",
                  fs::copy_options::recursive | fs::copy_options::copy_symlinks);
       },
       "nested code has been added: Frameworks/Two.framework"},
      {"changed framework Info.plist",
       [](const fs::path& c) {
         writeText(c / "Frameworks/Kit.framework/Versions/A/Resources/Info.plist",
                   "<plist><dict><key>CFBundleExecutable</key><string>Kit</string></dict></plist>");
       },
       "nested code Frameworks/Kit.framework: in architecture arm64: Info.plist has been modified"},
      {"framework without its links",
       [](const fs::path& c) { fs::remove(c / "Frameworks/Kit.framework/Versions/Current"); },
       "Versions/Current isn't a link to a version"},
      {"framework with a stray file",
       [](const fs::path& c) { writeText(c / "Frameworks/Kit.framework/evil", "x"); },
       "unsealed contents in the bundle's root: evil"},
      {"framework with a link elsewhere",
       [](const fs::path& c) { relink(c / "Frameworks/Kit.framework/Kit", "../../MacOS/helper"); },
       "unsealed contents in the bundle's root: Kit"},
      {"framework with a link to another name",
       [](const fs::path& c) { relink(c / "Frameworks/Kit.framework/Kit", "Versions/Current/Resources"); },
       "unsealed contents in the bundle's root: Kit"},
      {"framework with another version",
       [](const fs::path& c) { writeText(c / "Frameworks/Kit.framework/Versions/B/evil", "x"); },
       "version B: not a bundle"}};
  return kSpoilings;
}

INSTANTIATE_TEST_SUITE_P(Bundles, SpoiledBundle, testing::ValuesIn(spoilings()), [](const auto& spoiling) {
  std::string name = spoiling.param.name;
  for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
  return name;
});

TEST_F(Programs, AChangedScriptIsRefused) {
  const fs::path app = signedApp(MainExecutable::script);
  flipByte(app / "Contents/MacOS/Main", 3);
  expectRefused(app, "code has been modified");
}

TEST_F(Programs, AScriptsSignatureFilesAreChecked) {
  const fs::path app = signedApp(MainExecutable::script);
  const fs::path folder = app / "Contents/_CodeSignature";
  for (const char* name : {"CodeDirectory", "CodeRequirements", "CodeRequirements-1"}) {
    const Bytes good = contentOf(folder / name);
    flipByte(folder / name, good.size() - 1);
    EXPECT_EQ(verifyCode(app).status, 1) << name;
    writeFile(folder / name, good);
  }
  ASSERT_EQ(verifyCode(app).status, 0);
  fs::remove(folder / "CodeSignature");
  expectRefused(app, "has no signer and isn't marked as ad hoc");
}

TEST_F(Programs, SignatureFilesBesideAnEmbeddedSignatureAreRefused) {
  const fs::path script = workshop.app("S.app", MainExecutable::script);
  workshop.sign(script);
  const fs::path app = signedApp(MainExecutable::machO);
  fs::copy_file(script / "Contents/_CodeSignature/CodeDirectory",
                app / "Contents/_CodeSignature/CodeDirectory");
  expectRefused(app, "signature files beside the signature in its main executable");
}

TEST_F(Programs, SwappedNestedCodeIsRefusedEvenWhenItIsValidByItself) {
  const fs::path app = signedApp();
  MachOPlan other;
  other.text = copyOf(viewOf("another program"));
  const fs::path swapped = workshop.machO("other", other);
  workshop.sign(swapped, [] {
    SigningOptions options;
    options.identifier = "helper";
    return options;
  }());
  ASSERT_EQ(verifyCode(swapped).status, 0);
  fs::copy_file(swapped, app / "Contents/MacOS/helper", fs::copy_options::overwrite_existing);
  expectRefused(app, "nested code MacOS/helper: isn't the code that was sealed");
}

TEST_F(Programs, NestedCodeThatIsSealedButNotSignedIsRefused) {
  const fs::path app = signedApp();
  fs::remove(app / "Contents/MacOS/helper");
  workshop.machO("A.app/Contents/MacOS/helper");
  expectRefused(app, "nested code MacOS/helper: code object is not signed at all");
}

TEST_F(Programs, WhatMayChangeDoesntSpoilABundle) {
  const fs::path app = signedApp();
  fs::remove(app / "Contents/Resources/en.lproj/Main.strings");  // an optional resource
  writeFile(app / "Contents/Resources/.DS_Store", viewOf("x"));
  writeFile(app / "Contents/PkgInfo", viewOf("changed"));
  writeFile(app / "Contents/CodeResources", viewOf("a stapled ticket"));
  fs::permissions(app / "Contents/Resources/data.txt", fs::perms::owner_read);
  const ProgramResult result = verifyCode(app);
  EXPECT_EQ(result.status, 0) << result.text;
}

TEST_F(Programs, ALinkThatLeavesTheBundleIsRefusedThoughItIsSealed) {
  for (const char* target : {"/etc/passwd", "../../../outside", "../../../../x", "deep/../../../../../x",
                             "/System/../etc/passwd"}) {
    const fs::path app = workshop.app("A.app");
    fs::create_symlink(target, app / "Contents/Resources/out");
    workshop.sign(app);
    expectRefused(app, "a link points out of the bundle: Resources/out");
    fs::remove_all(app);
  }
  for (const char* target : {"/System/Library/x", "/Library/x", "../MacOS/helper", "../MacOS/Main",
                             "./data.txt", "deep/er", "link.txt", "../Frameworks/Kit.framework/Kit"}) {
    const fs::path app = workshop.app("A.app");
    fs::create_symlink(target, app / "Contents/Resources/in");
    workshop.sign(app);
    EXPECT_EQ(verifyCode(app).status, 0) << target << verifyCode(app).text;
    fs::remove_all(app);
  }
}

TEST_F(Programs, ALinkToNothingThatIsSealedIsRefused) {
  for (const char* target : {"absent", "out", "../PkgInfo", "../_CodeSignature/CodeResources",
                             "../CodeResources", ".DS_Store", "../MacOS/helper/x", "../../A.app"}) {
    const fs::path app = workshop.app("A.app");
    fs::create_symlink(target, app / "Contents/Resources/out");
    workshop.sign(app);
    writeFile(app / "Contents/PkgInfo", viewOf("p"));
    writeFile(app / "Contents/CodeResources", viewOf("t"));
    writeFile(app / "Contents/Resources/.DS_Store", viewOf("d"));
    expectRefused(app, "a link's target isn't sealed: Resources/out");
    fs::remove_all(app);
  }
}

TEST_F(Programs, ResourceForksAndFinderInformationAreRefused) {
  const fs::path app = signedApp();
  const fs::path image = signedImage();
  const fs::path tool = workshop.machO("tool");
  workshop.sign(tool);
  for (const fs::path& path : {app / "Contents/Resources/data.txt", app / "Contents/MacOS/Main",
                               app / "Contents/MacOS/helper", image, tool}) {
    const fs::path code = path.string().starts_with(app.string()) ? app : path;
    for (const char* name : {"user.com.apple.FinderInfo", "user.com.apple.ResourceFork"}) {
      ASSERT_EQ(::setxattr(path.c_str(), name, "x", 1, 0), 0);
      expectRefused(code, "a resource fork or Finder information isn't allowed: ");
      ASSERT_EQ(::removexattr(path.c_str(), name), 0);
    }
    EXPECT_EQ(verifyCode(code).status, 0) << verifyCode(code).text;
  }
}

TEST_F(Programs, WhatTheFinderAndTheShellPutBesideTheSealedPartsIsAllowed) {
  const fs::path app = signedApp();
  const fs::path kit = app / "Contents/Frameworks/Kit.framework";
  for (const fs::path& path : {app / ".DS_Store", app / "Icon\r", app / ".LSOverride", kit / ".DS_Store",
                               kit / "module.map", kit / "Versions/.DS_Store"}) {
    writeFile(path, viewOf("x"));
    EXPECT_EQ(verifyCode(app).status, 0) << path << verifyCode(app).text;
    fs::permissions(path, fs::perms::owner_exec, fs::perm_options::add);
    EXPECT_EQ(verifyCode(app).status, 1) << path << " as a program";
    fs::remove(path);
    fs::create_directory(path);
    EXPECT_EQ(verifyCode(app).status, 1) << path << " as a folder";
    fs::remove(path);
  }
}

TEST_F(Programs, ALinkOfNestedCodeMayLeadToItsNeighboursButNotOutside) {
  const struct {
    const char* target;
    int status;
  } rows[] = {{"../../../../..", 0},
              {"../../../../../Resources/data.txt", 0},
              {"../../../../../Resources/absent", 1},
              {"../../../../../../../../x", 1}};
  for (const auto& [target, status] : rows) {
    const fs::path app = workshop.app("A.app");
    const fs::path kit = app / "Contents/Frameworks/Kit.framework";
    fs::create_symlink(target, kit / "Versions/A/Resources/out");
    workshop.sign(app);
    EXPECT_EQ(verifyCode(app).status, status) << target << verifyCode(app).text;
    expectRefused(kit, "a link points out of the bundle: Resources/out");
    fs::remove_all(app);
  }
}

TEST_F(Programs, NamesAndLinksMayHaveBeenDecomposedByAVolume) {
  const fs::path app = workshop.app("A.app");
  const fs::path resources = app / "Contents/Resources";
  writeFile(resources / "\u00dcber.txt", viewOf("x"));
  fs::create_symlink("\u00dcber.txt", resources / "link");
  workshop.sign(app);
  fs::rename(resources / "\u00dcber.txt", resources / "U\u0308ber.txt");
  fs::remove(resources / "link");
  fs::create_symlink("U\u0308ber.txt", resources / "link");
  EXPECT_EQ(verifyCode(app).status, 0) << verifyCode(app).text;
  flipByte(resources / "U\u0308ber.txt", 0);
  EXPECT_EQ(verifyCode(app).status, 1);
}

// Several threads read the contents; a large file is read in pieces.
TEST_F(Programs, TheFirstOfSeveralChangedResourcesIsNamed) {
  const fs::path app = workshop.app("A.app");
  const fs::path resources = app / "Contents/Resources";
  const std::size_t large = 300'000;
  for (int number = 100; number < 200; ++number)
    writeText(resources / fmt::format("part-{}", number), std::string(large, 'x').c_str());
  workshop.sign(app);
  EXPECT_EQ(verifyCode(app).status, 0) << verifyCode(app).text;
  for (const int number : {199, 198, 171, 170, 150}) {
    flipByte(resources / fmt::format("part-{}", number), large - 1);
    expectRefused(app, fmt::format("a sealed resource has been modified: Resources/part-{}", number));
  }
}

TEST_F(Programs, SealsOfSHA1CountOnlyForCodeThatHasNothingBetter) {
  const fs::path app = workshop.app("Old.app");
  SigningOptions old;
  old.digests = {HashType::sha1};
  workshop.sign(app, old);
  EXPECT_EQ(verifyCode(app).status, 0) << verifyCode(app).text;
  flipByte(app / "Contents/Resources/data.txt", 0);
  expectRefused(app, "a sealed resource has been modified: Resources/data.txt");
}

TEST_F(Programs, ABundleWhoseInfoPlistIsntSealedIsRefused) {
  const fs::path app = signedApp(MainExecutable::machO);
  // Signed outside the bundle, so that no slot covers the files around it.
  const fs::path alone = workshop.folder() / "Main";
  fs::copy_file(app / "Contents/MacOS/Main", alone);
  workshop.sign(alone);
  fs::copy_file(alone, app / "Contents/MacOS/Main", fs::copy_options::overwrite_existing);
  expectRefused(app, "isn't sealed by the signature");
}

TEST_F(Programs, AMainExecutableOutsideOfItsPlaceIsRefused) {
  for (const char* name : {"../../../bin/sh", "..", "a/b", ""}) {
    const fs::path app = signedApp(MainExecutable::script);
    std::string info = textOf(contentOf(app / "Contents/Info.plist"));
    info.replace(info.find("Main"), 4, name);
    writeFile(app / "Contents/Info.plist", viewOf(info));
    expectRefused(app, "names no usable main executable");
    fs::remove_all(app);
  }
}

TEST_F(Programs, ABundleWithoutAnExecutableIsSealedThroughItsInfoPlist) {
  workshop.write("R.bundle/Contents/Info.plist",
                 viewOf("<plist><dict><key>CFBundleIdentifier</key><string>r</string></dict></plist>"));
  const fs::path data = workshop.write("R.bundle/Contents/Resources/data", viewOf("x"));
  const fs::path bundle = workshop.folder() / "R.bundle";
  workshop.sign(bundle);
  EXPECT_EQ(verifyCode(bundle).status, 0) << verifyCode(bundle).text;
  flipByte(data, 0);
  EXPECT_EQ(verifyCode(bundle).status, 1);
}

}  // namespace
}  // namespace lab
