// A temporary folder where tests make, sign, spoil and verify code.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "Bytes.h"
#include "MachOWriter.h"
#include "SigningIdentity.h"
#include "Verifier.h"

namespace lab {

// The team of the tests' authority.
inline constexpr const char* kTeam = "KELOTEAM01";

struct ProgramResult {
  int status = -1;   // of the exit; -1 when the program was killed or couldn't be started
  std::string text;  // standard output and error
};

// Runs a program with its output captured. It is waited for.
ProgramResult runProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments);

// The real programs where linux_host.json names the tests' authority, and where there is no such file.
ProgramResult codesign(const std::vector<std::string>& arguments);
ProgramResult codesignWithoutHostFile(const std::vector<std::string>& arguments);
ProgramResult spctl(const std::vector<std::string>& arguments);
ProgramResult spctlWithoutHostFile(const std::vector<std::string>& arguments);

// "codesign --verify --strict -vv PATH", and with the team's requirement.
ProgramResult verifyCode(const std::filesystem::path& path);
ProgramResult verifyTeam(const std::filesystem::path& path, const std::string& team = kTeam);
// The engine's assessment of a disk image.
ProgramResult assess(const std::filesystem::path& path);

const TestAuthority& testAuthority();
Anchors testAnchors();

enum class MainExecutable { machO, universal, script };

class Workshop {
 public:
  Workshop();
  // In that folder rather than where temporary files go; there, too, when it can't be used.
  explicit Workshop(const std::filesystem::path& parent);
  Workshop(const Workshop&) = delete;
  Workshop& operator=(const Workshop&) = delete;
  ~Workshop();

  const std::filesystem::path& folder() const { return folder_; }

  std::filesystem::path write(const std::string& name, ByteView content) const;
  std::filesystem::path machO(const std::string& name, const MachOPlan& plan = {}) const;
  std::filesystem::path universal(const std::string& name) const;
  // An unsigned application: main executable, helper tool, framework with links, resources with a link,
  // localisation.
  std::filesystem::path app(const std::string& name, MainExecutable kind = MainExecutable::machO) const;
  // An unsigned disk image of so many random bytes.
  std::filesystem::path diskImage(const std::string& name, std::size_t size = 100000) const;

  // Signs with the tests' authority, stamped, now.
  void sign(const std::filesystem::path& path, SigningOptions options = {}) const;
  void sign(const std::filesystem::path& path, LeafKind leaf, SigningOptions options = {}) const;
  void signAdHoc(const std::filesystem::path& path, SigningOptions options = {}) const;

 private:
  std::filesystem::path folder_;
};

// {"a": "..."} in the binary form of a property list.
extern const Bytes kBinaryPropertyList;

Bytes contentOf(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, ByteView content);
void flipByte(const std::filesystem::path& path, std::uint64_t offset);
// Where `part` first stands in `whole`; fails the test when it doesn't.
std::size_t find(const Bytes& whole, ByteView part);

std::chrono::sys_seconds currentTime();

}  // namespace lab
