#include "Support.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fmt/format.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

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

void redirect(const fs::path& file, int to) {
  const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  if (descriptor < 0 || dup2(descriptor, to) < 0) _exit(126);
}

}  // namespace

Running::Running(const Words& command, const fs::path& output, const fs::path& diagnostics)
    : process_(fork()) {
  if (process_ != 0) return;
  redirect(output, 1);
  redirect(diagnostics, 2);
  const int nothing = open("/dev/null", O_RDONLY);
  if (dup2(nothing, 0) < 0) _exit(126);
  std::vector<char*> arguments;
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  execv(arguments[0], arguments.data());
  _exit(127);
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
  int status = 0;
  while (waitpid(process_, &status, 0) < 0 && errno == EINTR) {
  }
  process_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
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
