// Shared by the lab's tests: a folder per test, and programs in the layout of an installer.
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

// A program that runs beside the test. The destructor ends it and waits for it.
class Running {
 public:
  // Standard output goes to `output`, a file or device. Standard input is empty.
  Running(const Words& command, const fs::path& output, const fs::path& diagnostics);
  ~Running();
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  void signal(int number) const;
  int wait();  // the exit status

 private:
  pid_t process_ = -1;
};

// A test with its own empty folder, removed at its end.
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

// A test with a machine and the lab's programs for it, as in an installer's bundle.
class ProgramTest : public FolderTest {
 public:
  ProgramTest();

 protected:
  // Runs the program `words[0]` of the lab.
  Outcome lab(Words words) const;
  fs::path program(const std::string& name) const { return folder / "Resources" / "programs" / name; }
  // Makes an image of `source`.
  fs::path image(const fs::path& source, const std::string& volume = "Kelo Brenna") const;

  const fs::path machine = folder / "machine";
  const fs::path volumes = machine / "Volumes";
};

std::string contentOf(const fs::path& file);

// All names in the folder, also hidden ones, sorted.
std::vector<std::string> namesIn(const fs::path& folder);

unsigned modeOf(const fs::path& path);

// One line per item below the folder: path, kind, mode of files, target or content. Sorted.
std::vector<std::string> transcriptOf(const fs::path& folder);

// An extended attribute by its macOS name; "(none)" when absent.
std::string attributeOf(const fs::path& path, const std::string& name);

}  // namespace lab::test
