// The machine that a contract case runs on: simulated or real. A case uses the seam through `machine()` and
// prepares the machine with the verbs below, which mean the same on both.
#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Machine.h"

namespace installer::test {

class ServerResource;
using Lines = std::vector<std::string>;

class MachineUnderTest {
 public:
  virtual ~MachineUnderTest() = default;

  virtual Machine& machine() = 0;
  // The folder of the case, empty at first and removed afterwards; absolute, without links in its path.
  virtual Path folder() = 0;

  // Files.
  virtual void makeLink(const Path& path, const std::string& target) = 0;
  virtual void setWritable(const Path& path, bool writable) = 0;
  virtual void setReadable(const Path& path, bool readable) = 0;
  virtual void setExecutable(const Path& path) = 0;
  // False when only root may do that and the tests don't run as root; then the cases of the next two are
  // skipped.
  virtual bool laysForOthers() { return true; }
  virtual void setImmutable(const Path& path, bool immutable) = 0;
  // Makes the folder sticky, and changes its owner and its entries' to another user than the ordinary one.
  virtual void makeSticky(const Path& path) = 0;
  // Leaves the leftovers of a killed copy to `path`.
  virtual void leaveKilledCopy(const Path& path) = 0;
  // Runs `work` as a user to whom permissions apply, perhaps in another process. Returns the lines of `work`;
  // expectations inside `work` are lost.
  virtual Lines asOrdinaryUser(const std::function<Lines()>& work) = 0;

  // Programs. Each prints on both streams and exits; a real script, or simulated.
  virtual Path makeProgram(const std::string& name, const std::string& output, const std::string& errorOutput,
                           int status) = 0;
  // A program that prints its arguments, each on a line.
  virtual Path makeEchoProgram(const std::string& name) = 0;

  // Streams. Runs `work` with this standard input, perhaps in another process, and returns its output. Once
  // per case.
  struct Written {
    std::string output;
    std::string error;
  };
  virtual Written withStandardInput(const std::string& input, const std::function<void()>& work) = 0;

  // Running applications. Starts the executable of the bundle at `bundle` and gives the process's number.
  enum class WhenAsked { quits, ignores };
  virtual std::int32_t startApplication(const Path& bundle, WhenAsked behaviour) = 0;

  // The administrator's prompt. False when only a person can answer it; then its cases are skipped.
  virtual bool promptsAreAnswered() { return true; }
  virtual void dismissPrompts() = 0;

  // Delivers a request to end to this process.
  virtual void requestTermination() = 0;

  // The system's facts about this process and its machine, read without the seam; 64-bit ARM is "arm64".
  struct Facts {
    std::string machineField;
    std::uint32_t user = 0;
    std::uint32_t group = 0;
    std::int32_t process = 0;
  };
  virtual Facts facts();

  // The network. `serverResource` is the script of one path of a server, `urlOf` its address.
  virtual ServerResource& serverResource(const std::string& path) = 0;
  virtual std::string urlOf(const std::string& path) = 0;
  virtual Lines requestsToServer() = 0;  // "GET /path" or "GET /path from 700"
};

// A machine to test.
struct Implementation {
  const char* name;
  std::unique_ptr<MachineUnderTest> (*make)();
};
std::vector<Implementation> implementations();
Implementation realImplementation();  // the one that isn't simulated

std::unique_ptr<MachineUnderTest> makeSimulatedMachineUnderTest();

// Begins a copy to `path`; the calling process must then end.
void beginCopy(const Path& path);

// The base of every suite.
class Contract : public ::testing::TestWithParam<Implementation> {
 protected:
  std::unique_ptr<MachineUnderTest> under = GetParam().make();
  Machine& machine = under->machine();
  FileSystem& files = machine.files;

  Path at(const std::string& name) { return joined(under->folder(), name); }
  // Writes a file and creates the folders above it.
  Path lay(const std::string& name, const std::string& bytes = "bytes");
  Path layFolder(const std::string& name);
  // Makes a bundle with this information.
  Path layBundle(const std::string& name, const std::string& identifier, const std::string& title);
  std::string bytesOf(const Path& path);
  // Names below `folder`, sorted; a directory's ends with a slash, a link's with "@".
  Lines treeOf(const Path& folder);

  // Runs the main run loop until `done` is true; fails the case if it doesn't become true.
  void turnUntil(const std::function<bool()>& done);
};

// "ok" or "NSCocoaErrorDomain 513".
template <class T>
std::string outcomeOf(const Result<T>& result) {
  return result ? "ok" : result.error().domain + " " + std::to_string(result.error().code);
}

// Runs SUITE on every machine.
#define INSTANTIATE_CONTRACT(SUITE)                                                              \
  INSTANTIATE_TEST_SUITE_P(On, SUITE, ::testing::ValuesIn(::installer::test::implementations()), \
                           [](const auto& parameter) { return std::string{parameter.param.name}; })

}  // namespace installer::test
