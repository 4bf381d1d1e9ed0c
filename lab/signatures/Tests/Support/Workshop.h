// A temporary folder in which tests make, sign, change and verify code.
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

// Runs a program, waits for its end and captures its output.
ProgramResult runProgram(const std::filesystem::path& program, const std::vector<std::string>& arguments);

// The real programs, with a linux_host.json that names the tests' authority, and without such a file.
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
  // In `parent` instead of the temporary folder, if possible.
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
  // An unsigned disk image of `size` random bytes.
  std::filesystem::path diskImage(const std::string& name, std::size_t size = 100000) const;

  // Signs with the tests' authority and a timestamp of now.
  void sign(const std::filesystem::path& path, SigningOptions options = {}) const;
  void sign(const std::filesystem::path& path, LeafKind leaf, SigningOptions options = {}) const;
  void signAdHoc(const std::filesystem::path& path, SigningOptions options = {}) const;

 private:
  std::filesystem::path folder_;
};

// {"a": "..."} in the binary form of a property list.
extern const Bytes kBinaryPropertyList;
// Two hundred arrays after a tag in which a reader that ignores quotes sees the start of a comment.
extern const Bytes kQuotedComment;

Bytes contentOf(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, ByteView content);
void flipByte(const std::filesystem::path& path, std::uint64_t offset);
// The offset of the first `part` in `whole`; fails the test when there is none.
std::size_t find(const Bytes& whole, ByteView part);

std::chrono::sys_seconds currentTime();

}  // namespace lab
