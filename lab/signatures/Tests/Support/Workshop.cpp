#include "Support/Workshop.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <sys/wait.h>
#include <unistd.h>

#include "Base/POSIX/Spawn.h"
#include "BlobWriter.h"
#include "MappedFile.h"
#include "Signer.h"

namespace lab {

namespace {

namespace fs = std::filesystem;

std::string infoPlist(const std::string& executable, const std::string& identifier) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist "
         "version=\"1.0\"><dict><key>CFBundleExecutable</key><string>" +
         executable + "</string><key>CFBundleIdentifier</key><string>" + identifier +
         "</string></dict></plist>\n";
}

std::vector<std::string> assessing(const fs::path& path) {
  return {"--assess", "--type", "open", "-vvv", "--context", "context:primary-signature", path.string()};
}

const fs::path kHost = SIGNATURE_TESTS_HOST;

}  // namespace

ProgramResult runProgram(const fs::path& program, const std::vector<std::string>& arguments) {
  installer::Pipe pipe = installer::makePipe();
  const auto child =
      installer::spawn({program.string(), arguments, -1, pipe.writing.get(), pipe.writing.get()});
  if (!child) return {};
  pipe.writing.reset();
  ProgramResult result;
  std::array<char, 4096> buffer{};
  for (ssize_t got = 0; (got = ::read(pipe.reading.get(), buffer.data(), buffer.size())) > 0;)
    result.text.append(buffer.data(), static_cast<std::size_t>(got));
  result.status = installer::waitForExit(*child);
  return result;
}

ProgramResult codesign(const std::vector<std::string>& arguments) {
  return runProgram(kHost / "trusting/programs/codesign", arguments);
}

ProgramResult codesignWithoutHostFile(const std::vector<std::string>& arguments) {
  return runProgram(kHost / "plain/programs/codesign", arguments);
}

ProgramResult spctl(const std::vector<std::string>& arguments) {
  return runProgram(kHost / "trusting/programs/spctl", arguments);
}

ProgramResult spctlWithoutHostFile(const std::vector<std::string>& arguments) {
  return runProgram(kHost / "plain/programs/spctl", arguments);
}

ProgramResult verifyCode(const fs::path& path) {
  return codesign({"--verify", "--strict", "-vv", path.string()});
}

ProgramResult verifyTeam(const fs::path& path, const std::string& team) {
  return codesign({"--verify", "--strict", "-vv", "-R",
                   "=anchor apple generic and certificate leaf[subject.OU] = " + team, path.string()});
}

ProgramResult assess(const fs::path& path) {
  return spctl(assessing(path));
}

const Bytes kBinaryPropertyList = copyOf(viewOf(
    std::string("bplist00\xD1\x01\x02Qa\x08", 14) + std::string("\x08\x0B\x0D", 3) + std::string(6, '\0') +
    "\x01\x01" + std::string("\0\0\0\0\0\0\0\3\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x0E", 24)));

const Bytes kQuotedComment = [] {
  std::string arrays = "<true/>";
  for (int i = 0; i < 200; ++i) arrays = "<array>" + arrays + "</array>";
  return copyOf(viewOf("<plist><array a=\"><!--\">" + arrays + "</array><!-- --></plist>"));
}();

const TestAuthority& testAuthority() {
  static const TestAuthority kAuthority = TestAuthority::load(kHost / "trusting/authority").value();
  return kAuthority;
}

Anchors testAnchors() {
  return Anchors::withTestAuthority(Certificate::readFile(kHost / "trusting/authority/root.pem").value());
}

Workshop::Workshop() : Workshop(fs::temp_directory_path()) {
}

Workshop::Workshop(const fs::path& parent) {
  std::string pattern = (parent / "signature-tests-XXXXXX").string();
  std::string otherwise = (fs::temp_directory_path() / "signature-tests-XXXXXX").string();
  const char* made = ::mkdtemp(pattern.data());
  folder_ = made != nullptr ? made : ::mkdtemp(otherwise.data());
}

Workshop::~Workshop() {
  std::error_code error;
  fs::remove_all(folder_, error);
}

fs::path Workshop::write(const std::string& name, ByteView content) const {
  const fs::path path = folder_ / name;
  fs::create_directories(path.parent_path());
  writeFile(path, content);
  return path;
}

fs::path Workshop::machO(const std::string& name, const MachOPlan& plan) const {
  return write(name, makeMachO(plan));
}

fs::path Workshop::universal(const std::string& name) const {
  MachOPlan intel;
  intel.cpuType = 0x01000007;
  intel.text = copyOf(viewOf("intel"));
  MachOPlan arm;
  arm.text = copyOf(viewOf("arm"));
  return write(name, makeUniversal({makeMachO(intel), makeMachO(arm)}));
}

fs::path Workshop::app(const std::string& name, MainExecutable kind) const {
  const std::string contents = name + "/Contents/";
  const std::string framework = contents + "Frameworks/Kit.framework/";
  write(contents + "Info.plist", viewOf(infoPlist("Main", "test.app")));
  write(contents + "PkgInfo", viewOf("APPL????"));
  if (kind == MainExecutable::machO) machO(contents + "MacOS/Main");
  if (kind == MainExecutable::universal) universal(contents + "MacOS/Main");
  if (kind == MainExecutable::script) write(contents + "MacOS/Main", viewOf("#!/bin/sh\nexit 0\n"));
  machO(contents + "MacOS/helper");
  machO(framework + "Versions/A/Kit", {0x0100000c, 0, 6, {}, {}});
  write(framework + "Versions/A/Resources/Info.plist", viewOf(infoPlist("Kit", "test.kit")));
  fs::create_directory_symlink("A", folder_ / (framework + "Versions/Current"));
  fs::create_symlink("Versions/Current/Kit", folder_ / (framework + "Kit"));
  fs::create_directory_symlink("Versions/Current/Resources", folder_ / (framework + "Resources"));
  write(contents + "Resources/data.txt", viewOf("data"));
  write(contents + "Resources/deep/er/more.txt", viewOf("more"));
  write(contents + "Resources/en.lproj/Main.strings", viewOf("strings"));
  fs::create_symlink("data.txt", folder_ / (contents + "Resources/link.txt"));
  return folder_ / name;
}

fs::path Workshop::diskImage(const std::string& name, std::size_t size) const {
  std::mt19937 random(7);
  Bytes image(size);
  for (std::uint8_t& byte : image) byte = static_cast<std::uint8_t>(random());
  const std::size_t dataSize = image.size();
  const std::string plist = "<plist version=\"1.0\"><dict/></plist>";
  image.insert(image.end(), plist.begin(), plist.end());
  BlobWriter trailer;
  trailer.append(viewOf("koly"));
  trailer.number(4);
  trailer.number(512);
  trailer.append(Bytes(12));
  trailer.number64(0);
  trailer.number64(dataSize);
  trailer.append(Bytes(216 - trailer.size()));
  trailer.number64(dataSize);
  trailer.number64(plist.size());
  trailer.append(Bytes(512 - trailer.size()));
  const Bytes end = trailer.take();
  image.insert(image.end(), end.begin(), end.end());
  return write(name, image);
}

void Workshop::sign(const fs::path& path, SigningOptions options) const {
  sign(path, LeafKind::valid, std::move(options));
}

void Workshop::sign(const fs::path& path, LeafKind leaf, SigningOptions options) const {
  if (options.time == std::chrono::sys_seconds()) options.time = currentTime();
  const auto done = Signer(SigningIdentity(testAuthority(), leaf), std::move(options)).sign(path);
  ASSERT_TRUE(done) << done.error().reason;
}

void Workshop::signAdHoc(const fs::path& path, SigningOptions options) const {
  const auto done = Signer(SigningIdentity(), std::move(options)).sign(path);
  ASSERT_TRUE(done) << done.error().reason;
}

Bytes contentOf(const fs::path& path) {
  const auto file = MappedFile::open(path);
  EXPECT_TRUE(file) << path;
  return file ? copyOf(file->bytes()) : Bytes();
}

void writeFile(const fs::path& path, ByteView content) {
  std::ofstream stream(path, std::ios::binary | std::ios::trunc);
  stream.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
}

void flipByte(const fs::path& path, std::uint64_t offset) {
  Bytes bytes = contentOf(path);
  ASSERT_LT(offset, bytes.size());
  bytes[static_cast<std::size_t>(offset)] ^= 0x01;
  writeFile(path, bytes);
}

std::size_t find(const Bytes& whole, ByteView part) {
  const auto found = std::ranges::search(whole, part);
  EXPECT_FALSE(found.empty());
  return static_cast<std::size_t>(found.begin() - whole.begin());
}

std::chrono::sys_seconds currentTime() {
  return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
}

}  // namespace lab
