#include "Contract/LinuxTestFolder.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <grp.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace installer::test {

namespace fs = std::filesystem;

LinuxTestFolder::LinuxTestFolder() {
  std::string pattern = (fs::temp_directory_path() / "kelo-host-XXXXXX").string();
  path_ = ::mkdtemp(pattern.data());
  ::chmod(path_.c_str(), 0777);
}

LinuxTestFolder::~LinuxTestFolder() {
  // Restores the permissions of folders that a test has removed, parents first.
  std::error_code ignored;
  for (auto at = fs::recursive_directory_iterator{path_, ignored}; at != fs::recursive_directory_iterator{};
       at.increment(ignored)) {
    if (at->symlink_status().type() == fs::file_type::directory) ::chmod(at->path().c_str(), 0777);
  }
  fs::remove_all(path_, ignored);
}

Path LinuxTestFolder::makeFolder(const std::string& name) const {
  fs::create_directories(path_ + "/" + name);
  return *this / name;
}

Path LinuxTestFolder::write(const std::string& name, const std::string& text) const {
  const Path path = *this / name;
  fs::create_directories(fs::path{path}.parent_path());
  std::ofstream{path, std::ios::binary} << text;
  if (text.starts_with("#!")) ::chmod(path.c_str(), 0755);
  return path;
}

Path LinuxTestFolder::makeBundle(const std::string& name, const std::string& identifier,
                                 const std::string& title) const {
  write(name + "/Contents/Info.plist", fmt::format(R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>
<key>CFBundleIdentifier</key><string>{}</string>
<key>CFBundleName</key><string>{}</string>
</dict></plist>
)",
                                                   identifier, title));
  makeFolder(name + "/Contents/MacOS");
  return *this / name;
}

std::string textOf(const Path& file) {
  std::ifstream stream{file, std::ios::binary};
  std::ostringstream text;
  text << stream.rdbuf();
  return std::move(text).str();
}

std::vector<std::string> sortedNames(const Path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator{folder}) names.push_back(entry.path().filename().string());
  std::ranges::sort(names);
  return names;
}

pid_t startChild(const std::function<int()>& body) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(body());
  return child;
}

int endOf(pid_t child) {
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

int inChild(const std::function<int()>& body) {
  return endOf(startChild(body));
}

int withoutRights(const std::function<int()>& body) {
  constexpr unsigned nobody = 65534;
  return inChild([&] {
    const bool dropped =
        ::geteuid() != 0 || (::setgroups(0, nullptr) == 0 && ::setresgid(nobody, nobody, nobody) == 0 &&
                             ::setresuid(nobody, nobody, nobody) == 0);
    return dropped ? body() : 99;
  });
}

bool dieInSystemCall(long number) {
  constexpr auto calledNumber = static_cast<unsigned>(offsetof(seccomp_data, nr));
  std::array<sock_filter, 4> rules{{BPF_STMT(BPF_LD | BPF_W | BPF_ABS, calledNumber),
                                    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(number), 0, 1),
                                    BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
                                    BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)}};
  const sock_fprog program{rules.size(), rules.data()};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

}  // namespace installer::test
