// What the lab's tests share: a folder of one's own, programs run in the layout that they are shipped in.
#pragma once

#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace lab::test {

namespace fs = std::filesystem;

using Words = std::vector<std::string>;

struct Outcome {
  int status = -1;  // 128 + signal for a program that a signal ended
  std::string output;
  std::string diagnostics;
};

// A program that runs while the test goes on. Waited for at the latest by the destructor, which ends it
// first.
class Running {
 public:
  // Standard output goes to `output`, a file or device. Nothing is read from standard input.
  Running(const Words& command, const fs::path& output, const fs::path& diagnostics);
  ~Running();
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  void signal(int number) const;
  int wait();  // the exit status

 private:
  pid_t process_ = -1;
};

// A test with an empty folder that goes with it.
class FolderTest : public testing::Test {
 public:
  FolderTest();
  ~FolderTest() override;

 protected:
  fs::path write(const std::string& name, const std::string& content = "content\n",
                 unsigned mode = 0644) const;
  Outcome run(const Words& command) const;

  const fs::path folder;
};

// A test with a machine and the lab's programs set up for it, as in an installer's bundle.
class ProgramTest : public FolderTest {
 public:
  ProgramTest();

 protected:
  // The program `words[0]` of the lab.
  Outcome lab(Words words) const;
  fs::path program(const std::string& name) const { return folder / "Resources" / "programs" / name; }
  // An image of `source` made for this test.
  fs::path image(const fs::path& source, const std::string& volume = "Kelo Brenna") const;

  const fs::path machine = folder / "machine";
  const fs::path volumes = machine / "Volumes";
};

std::string contentOf(const fs::path& file);

// Names of everything in the folder, sorted; hidden ones too.
std::vector<std::string> namesIn(const fs::path& folder);

unsigned modeOf(const fs::path& path);

// Everything below the folder, one line each: path, kind, mode of files, target or content. Sorted.
std::vector<std::string> transcriptOf(const fs::path& folder);

// An extended attribute as macOS names it; "(none)" when absent.
std::string attributeOf(const fs::path& path, const std::string& name);

}  // namespace lab::test
