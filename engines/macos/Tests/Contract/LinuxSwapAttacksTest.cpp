// File operations while another thread exchanges something in their way with a link to the user's documents.
#include <cstdio>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "Base/Mutex.h"
#include "Contract/LinuxTestFolder.h"
#include "Platform/Linux/LinuxServices.h"

namespace {

// Called once, before the next `fchmodat` of this process.
std::function<void()> beforeChangeOfMode;

}  // namespace

// Replaces the C library's function in this executable.
extern "C" int fchmodat(int folder, const char* name, mode_t mode, int flags) noexcept {
  static auto* const original = reinterpret_cast<decltype(&::fchmodat)>(::dlsym(RTLD_NEXT, "fchmodat"));
  if (const auto act = std::exchange(beforeChangeOfMode, nullptr)) act();
  return original(folder, name, mode, flags);
}

namespace installer::test {
namespace {

namespace fs = std::filesystem;

class LinuxSwapAttacks : public testing::Test {
 protected:
  static constexpr int kRounds = 40;
  using Tree = std::map<std::string, std::string>;  // by name: owner and mode, with the bytes or the target

  LinuxTestFolder folder;
  LinuxFileSystem files;
  const Path documents = folder / "documents";
  const Path bundle = folder / "App.app";
  const Path source = folder / "source.app";
  const std::string mark = fmt::format("{}", ::getpid());
  mutable Mutex acting;  // held by the attacker during each attack

  LinuxSwapAttacks() {
    for (const auto* const name : {"letter", "photos/one", "MacOS/app"}) {
      folder.write(joined("documents", name), "the user's own");
    }
    ::chmod((documents + "/letter").c_str(), 0640);
    ::chmod(documents.c_str(), 0750);
  }

  void layBundle(const Path& path, mode_t mode = 0755, const std::string& inside = "") const;
  static Tree treeOf(const Path& top);
  static void removeAll(const Path& path);

  using Step = std::function<void()>;
  // Puts a link to the documents in the place of the item at `target` and takes it away again.
  Step exchanging(const Path& target) const;
  // Makes and removes a link to the documents at the free name `target`.
  Step planting(const Path& target) const;
  // Runs the rounds while another thread repeats `act`, and compares the documents after each round.
  void attack(const Step& act, const Step& round) const;
};

// Removes what is there before. The files are written under a name that isn't attacked.
void LinuxSwapAttacks::layBundle(const Path& path, mode_t mode, const std::string& inside) const {
  for (const auto* const name :
       {"Contents/MacOS/app", "Contents/Resources/deep/picture", "Contents/Info.plist"}) {
    folder.write(joined("fresh", name), name);
  }
  ::chmod((folder / "fresh" + inside).c_str(), mode);
  removeAll(path);
  std::error_code error;
  fs::rename(folder / "fresh", path, error);
  if (!error) return;
  ::chmod((folder / "fresh" + inside).c_str(), 0755);
  removeAll(folder / "fresh");
}

void LinuxSwapAttacks::removeAll(const Path& path) {
  std::error_code ignored;
  fs::remove_all(path, ignored);
}

LinuxSwapAttacks::Tree LinuxSwapAttacks::treeOf(const Path& top) {
  Tree tree;
  const auto add = [&](const std::string& name, const Path& path) {
    struct stat status{};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    const auto content = S_ISLNK(status.st_mode)   ? fs::read_symlink(path).string()
                         : S_ISREG(status.st_mode) ? textOf(path)
                                                   : "";
    tree[name] = fmt::format("{} {:o} {}", status.st_uid, status.st_mode, content);
  };
  if (fs::symlink_status(top).type() == fs::file_type::not_found) return tree;
  add(".", top);
  if (!fs::is_directory(fs::symlink_status(top))) return tree;
  for (const auto& entry : fs::recursive_directory_iterator{top}) {
    add(entry.path().lexically_relative(top).string(), entry.path().string());
  }
  return tree;
}

LinuxSwapAttacks::Step LinuxSwapAttacks::exchanging(const Path& target) const {
  return [this, target, spare = folder / "spare"] {
    const auto swap = [&] {
      return ::renameat2(AT_FDCWD, spare.c_str(), AT_FDCWD, target.c_str(), RENAME_EXCHANGE) == 0;
    };
    (void)::symlink(documents.c_str(), spare.c_str());
    if (!swap() || swap()) return;
    if (::rename(spare.c_str(), target.c_str()) != 0) removeAll(spare);
  };
}

LinuxSwapAttacks::Step LinuxSwapAttacks::planting(const Path& target) const {
  return [this, target] {
    (void)::symlink(documents.c_str(), target.c_str());
    (void)::unlink(target.c_str());
  };
}

void LinuxSwapAttacks::attack(const Step& act, const Step& round) const {
  const auto before = treeOf(documents);
  const std::jthread attacker{[&](const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      {
        const MutexLock lock{acting};
        act();
      }
      std::this_thread::yield();
    }
  }};
  for (int number = 0; number < kRounds && !HasFailure(); ++number) {
    round();
    EXPECT_EQ(treeOf(documents), before) << "round " << number;
  }
}

TEST_F(LinuxSwapAttacks, ARemovalStaysInItsFolder) {
  for (const auto& top : {bundle, folder / ".App.app.kelo-remove-" + mark}) {
    for (const auto* const inside : {"", "/Contents", "/Contents/Resources", "/Contents/MacOS"}) {
      attack(exchanging(top + inside), [&] {
        layBundle(bundle);
        (void)files.removeItem(bundle);
      });
    }
  }
}

TEST_F(LinuxSwapAttacks, LeftoversAreClearedInTheirFolder) {
  const auto leftover = folder / ".App.app.kelo-copy-" + mark;
  for (const auto* const inside : {"", "/Contents", "/Contents/MacOS"}) {
    attack(exchanging(leftover + inside), [&] {
      layBundle(leftover, 0500, inside);
      (void)files.clearLeftovers(bundle);
    });
  }
}

// A folder without its owner's permissions gets them before it is emptied.
TEST_F(LinuxSwapAttacks, ALinkInTheFoldersPlaceKeepsItsTargetsMode) {
  const auto leftover = folder / ".App.app.kelo-copy-" + mark;
  const auto before = treeOf(documents);
  layBundle(leftover, 0500);
  beforeChangeOfMode = [&] {
    EXPECT_EQ(::rename(leftover.c_str(), (folder / "aside").c_str()), 0);
    EXPECT_EQ(::symlink(documents.c_str(), leftover.c_str()), 0);
  };
  (void)files.clearLeftovers(bundle);
  EXPECT_FALSE(beforeChangeOfMode) << "the mode wasn't changed";
  EXPECT_EQ(treeOf(documents), before);
}

TEST_F(LinuxSwapAttacks, ACopyHasItsSourcesContentOrFails) {
  const auto staged = folder / ".App.app.kelo-copy-" + mark;
  layBundle(source);
  const auto wanted = treeOf(source);
  for (const auto& act : {planting(bundle), planting(staged), exchanging(staged)}) {
    attack(act, [&] {
      const auto copied = files.copyItem(source, bundle);
      EXPECT_TRUE(!copied || treeOf(bundle) == wanted);
      removeAll(bundle);
    });
  }
}

TEST_F(LinuxSwapAttacks, ACopyNeitherReadsNorWritesTheTargetsOfLinksInItsTrees) {
  const auto staged = folder / ".App.app.kelo-copy-" + mark;
  for (const auto& target : {source + "/Contents", source + "/Contents/MacOS", staged + "/Contents"}) {
    attack(exchanging(target), [&] {
      layBundle(source);
      (void)files.copyItem(source, bundle);
      // An exchange that found the staged folder before it was renamed ends in the copy.
      const MutexLock lock{acting};
      for (const auto& [name, content] : treeOf(bundle)) {
        EXPECT_FALSE(content.ends_with("the user's own")) << name;
      }
      removeAll(bundle);
    });
  }
}

TEST_F(LinuxSwapAttacks, AMoveStaysInItsFolder) {
  const auto staged = folder / ".App.app.staged";
  for (const auto& act : {exchanging(bundle), exchanging(staged), planting(staged)}) {
    attack(act, [&] {
      layBundle(bundle);
      (void)files.moveItem(bundle, staged);
      (void)files.removeItem(staged);
    });
  }
}

TEST_F(LinuxSwapAttacks, AWrittenFileReplacesALink) {
  const auto staged = folder / ".file.kelo-write-" + mark;
  for (const auto& act : {exchanging(folder / "file"), exchanging(staged), planting(staged)}) {
    attack(act, [&] { (void)files.writeFile(folder / "file", "bytes"); });
  }
}

// The commands of the engine whose programs every system has.
TEST_F(LinuxSwapAttacks, TheAdministratorsCommandsStayInTheirFolder) {
  AdministratorPrompt prompt;
  prompt.command = {folder.write("prompt", "#!/bin/sh\nexec \"$@\"\n")};
  prompt.asksRootToo = true;
  const auto script = LinuxAdministratorScripts{prompt}.make(
      "on runCommand(cmd)\n    do shell script cmd with administrator privileges\nend runCommand");
  const auto command = fmt::format("/bin/chown -R 65534:65534 '{0}'; /bin/rm -rf '{0}'", bundle);
  for (const auto* const inside : {"", "/Contents", "/Contents/MacOS"}) {
    attack(exchanging(bundle + inside), [&] {
      layBundle(bundle);
      EXPECT_TRUE(script->callHandler("runCommand", command).has_value());
    });
  }
}

}  // namespace
}  // namespace installer::test
