#include "Support.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fmt/format.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "Base/POSIX/Spawn.h"
#include "diskimage/DiskImage.h"
#include "support/Attributes.h"
#include "support/Files.h"

namespace lab::test {
namespace {

fs::path newFolder() {
  std::string name = (fs::temp_directory_path() / "lab-test.XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error(name);
  return fs::canonical(name);
}

installer::FileDescriptor appending(const fs::path& file) {
  return installer::FileDescriptor{open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)};
}

}  // namespace

Running::Running(const Words& command, const fs::path& output, const fs::path& diagnostics) {
  const auto out = appending(output);
  const auto errors = appending(diagnostics);
  const auto started =
      installer::spawn({command.front(), {command.begin() + 1, command.end()}, -1, out.get(), errors.get()});
  if (!started) throw std::runtime_error(command.front());
  process_ = *started;
}

Running::~Running() {
  if (process_ <= 0) return;
  signal(SIGKILL);
  wait();
}

void Running::signal(int number) const {
  kill(process_, number);
}

int Running::wait() {
  return installer::waitForExit(std::exchange(process_, -1));
}

FolderTest::FolderTest() : folder(newFolder()) {
}

FolderTest::~FolderTest() {
  EXPECT_TRUE(removeTree(folder));
}

fs::path FolderTest::write(const std::string& name, const std::string& content, unsigned mode) const {
  const fs::path path = folder / name;
  fs::create_directories(path.parent_path());
  std::ofstream{path} << content;
  chmod(path.c_str(), mode);
  return path;
}

Outcome FolderTest::run(const Words& command) const {
  const fs::path streams = newFolder();
  Running running{command, streams / "out", streams / "err"};
  Outcome outcome;
  outcome.status = running.wait();
  outcome.output = contentOf(streams / "out");
  outcome.diagnostics = contentOf(streams / "err");
  fs::remove_all(streams);
  return outcome;
}

ProgramTest::ProgramTest() {
  fs::create_directories(program("").parent_path());
  for (const char* name : {"hdiutil", "ditto", "xattr", "lsregister", "open"}) {
    fs::create_hard_link(fs::path{LAB_PROGRAMS} / name, program(name));
  }
  std::ofstream{folder / "Resources" / "linux_host.json"} << R"({"root": "../machine"})";
}

Outcome ProgramTest::lab(Words words) const {
  words[0] = program(words[0]).string();
  return run(words);
}

fs::path ProgramTest::image(const fs::path& source, const std::string& volume) const {
  fs::path file = folder / "image.dmg";
  const auto made = makeDiskImage(source, volume, file);
  if (!made) throw std::runtime_error(made.error());
  return file;
}

std::string contentOf(const fs::path& file) {
  std::ifstream stream{file, std::ios::binary};
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

std::vector<std::string> namesIn(const fs::path& folder) {
  std::vector<std::string> names;
  if (!fs::exists(folder)) return names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename().string());
  std::ranges::sort(names);
  return names;
}

unsigned modeOf(const fs::path& path) {
  struct stat status{};
  lstat(path.c_str(), &status);
  return status.st_mode & 07777U;
}

std::vector<std::string> transcriptOf(const fs::path& folder) {
  std::vector<std::string> lines;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    const std::string name = entry.path().lexically_relative(folder).string();
    const auto type = entry.symlink_status().type();
    if (type == fs::file_type::symlink)
      lines.push_back(name + " -> " + fs::read_symlink(entry.path()).string());
    else if (type == fs::file_type::directory)
      lines.push_back(fmt::format("{}/ {:o}", name, modeOf(entry.path())));
    else
      lines.push_back(fmt::format("{} {:o} {}", name, modeOf(entry.path()), contentOf(entry.path())));
  }
  std::ranges::sort(lines);
  return lines;
}

std::string attributeOf(const fs::path& path, const std::string& name) {
  const auto value = attribute(path, name);
  return value && *value ? **value : "(none)";
}

}  // namespace lab::test
