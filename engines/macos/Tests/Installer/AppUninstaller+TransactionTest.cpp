// Each file operation of a removal fails in turn, with each kind of error and each result of the prompt.
#include <fmt/format.h>

#include "Installer/AppUninstallerStory.h"

namespace installer::test {
namespace {

const Path kBrennaPath = "/Applications/Brenna.app";
const Path kStaged = "/Applications/.Brenna.app.kelo-uninstall";

enum class Prompt { never, granted, dismissed, failed, withoutEffect };

struct Attempt {
  Operation operation;
  Path failsAt;
  int successesFirst = 0;
  Error error = {};
  Prompt prompt = Prompt::never;
  bool hasReadOnlyDirectory = false;

  std::string text() const {
    return fmt::format("operation {} of {} after {}, code {}, prompt {}, read-only {}",
                       static_cast<int>(operation), failsAt, successesFirst, error.code,
                       static_cast<int>(prompt), hasReadOnlyDirectory);
  }
};

std::vector<Attempt> fileOperations() {
  std::vector<Attempt> attempts{{Operation::move, kBrennaPath},
                                {Operation::move, kBrennaPath, 1},
                                {Operation::openForReading, kStaged + "/Contents/Info.plist"}};
  for (const std::string part : {"", "/Contents", "/Contents/Info.plist", "/Contents/MacOS",
                                 "/Contents/MacOS/app", "/Contents/Resources", "/Contents/Resources/text"}) {
    attempts.push_back({Operation::remove, kStaged + part});
    attempts.push_back({Operation::enumerate, kStaged + part});
  }
  return attempts;
}

std::vector<Attempt> withEachError(const std::vector<Attempt>& attempts) {
  std::vector<Attempt> all;
  for (auto attempt : attempts) {
    for (const auto& error :
         {Error{"NSCocoaErrorDomain", 513, "e", nullptr}, Error{"NSCocoaErrorDomain", 512, "e", nullptr},
          Error{"NSPOSIXErrorDomain", 13, "e", nullptr}}) {
      attempt.error = error;
      all.push_back(attempt);
    }
  }
  return all;
}

std::vector<Attempt> withEachPrompt(const std::vector<Attempt>& attempts) {
  std::vector<Attempt> all;
  for (auto attempt : attempts) {
    for (const auto prompt :
         {Prompt::never, Prompt::granted, Prompt::dismissed, Prompt::failed, Prompt::withoutEffect}) {
      attempt.prompt = prompt;
      for (const bool hasReadOnlyDirectory : {false, true}) {
        attempt.hasReadOnlyDirectory = hasReadOnlyDirectory;
        all.push_back(attempt);
      }
    }
  }
  return all;
}

class RemovalTransaction {
 public:
  explicit RemovalTransaction(const Attempt& attempt) {
    const AppInfo app = *KeloAppProvider::shared().app(AppIdentifier::brenna);
    mac_.addRegisteredApp(kBrennaPath, {.identifier = app.installerBundleIdentifier});
    mac_.files.addFile(kBrennaPath + "/Contents/Resources/text", "text");
    if (attempt.hasReadOnlyDirectory) mac_.files.setWritable(kBrennaPath + "/Contents/Resources", false);
    before_ = mac_.files.snapshot(kBrennaPath);
    if (attempt.prompt == Prompt::dismissed) mac_.administrator.dismissesNext();
    if (attempt.prompt == Prompt::failed) mac_.administrator.failsNext(1);
    if (attempt.prompt == Prompt::withoutEffect) mac_.administrator.succeedsWithoutEffectNext();
    mac_.files.failAfter(attempt.successesFirst, attempt.operation, attempt.failsAt, attempt.error);
    result_ = AppUninstaller::uninstall(app, attempt.prompt != Prompt::never);
  }

  bool leftTheApp() const { return mac_.files.exists(kBrennaPath); }

  // The app is removed, or remains under the staging name and is reported there.
  void expectGone() const {
    const auto message = result_.errorMessage.value_or("");
    const bool isStranded = message.find("remain at " + kStaged + ".") != std::string::npos;
    EXPECT_NE(result_.success, isStranded);
    EXPECT_FALSE(result_.success && mac_.files.exists(kStaged));
  }

  // A failed deletion may have removed parts of the bundle, so a restored bundle must have at least the files
  // that it needs to start.
  void expectKept() {
    EXPECT_FALSE(result_.success);
    EXPECT_FALSE(mac_.files.exists(kStaged)) << "the app is never in two places";
    const bool deletionBegan = !mac_.logLines("removing the staged").empty();
    EXPECT_TRUE(deletionBegan || mac_.files.snapshot(kBrennaPath) == before_);
    EXPECT_TRUE(mac_.files.exists(kBrennaPath + "/Contents/Info.plist"));
    EXPECT_TRUE(mac_.files.exists(kBrennaPath + "/Contents/MacOS/app"));
  }

 private:
  SimulatedMachine mac_;
  std::map<std::string, std::string> before_;
  UninstallResult result_ = UninstallResult::failure({}, "not run");
};

TEST(RemovalTransaction, LeavesTheWholeAppOrNothingAtTheAppsPathWhateverFails) {
  const auto attempts = withEachPrompt(withEachError(fileOperations()));
  EXPECT_EQ(attempts.size(), 17U * 3 * 5 * 2);
  for (const auto& attempt : attempts) {
    SCOPED_TRACE(attempt.text());
    RemovalTransaction removal{attempt};
    if (removal.leftTheApp()) {
      removal.expectKept();
    } else {
      removal.expectGone();
    }
  }
}

}  // namespace
}  // namespace installer::test
