// lab-sign: makes a test authority, signs fixtures with it, and makes small Mach-O files to sign.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fmt/format.h>
#include <fstream>
#include <functional>
#include <map>
#include <span>
#include <sstream>
#include <tuple>

#include "BER.h"
#include "CodeDirectory.h"
#include "MachOWriter.h"
#include "MappedFile.h"
#include "Signer.h"

namespace {

using namespace lab;

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 2;

constexpr const char* kHelp =
    R"(lab-sign make-authority FOLDER [--team TEAM] [--name NAME]
    Makes a test authority: root.pem (for linux_host.json), an intermediate and leaves like Developer ID ones, a
    timestamping leaf, and their unprotected keys.

lab-sign sign --authority FOLDER [options] PATH...
lab-sign sign --variant ad-hoc [options] PATH...
lab-sign sign --identity FILE.p12 --password-file FILE [--timestamp URL] [options] PATH...
    Signs Mach-O files (thin and universal), bundles from the inside out (also those whose main executable is a
    script), and UDIF disk images, in place.
    --variant V          valid (default), unstamped, ad-hoc, self-signed, wrong-team,
                         expired            signed after the certificate's end, stamped then: invalid
                         expired-stamped    signed and stamped before the certificate's end: valid
                         expired-unstamped  signed before the certificate's end, no timestamp: valid, expired
                         not-yet-valid      the certificate begins in 2048: invalid
    --identity FILE.p12  a key with its certificates, instead of the test authority's
    --password-file FILE its first line opens the identity
    --timestamp URL      an RFC 3161 server for secure timestamps; without one the signatures have none
    --identifier ID      else CFBundleIdentifier, else the file's name
    --team TEAM          written into the code directory instead of the leaf's own team
    --digests LIST       e.g. sha1,sha256; one code directory each, the first is the primary one
    --flags LIST         runtime, expires, or numbers
    --entitlements FILE  a property list
    --time TIME          signing time, e.g. 20240131120000Z; default: now
    --keep-nested        seal nested code unchanged instead of signing it again

lab-sign make-macho FILE [--arch LIST] [--type execute|dylib|bundle] [--text TEXT] [--size BYTES] [--info-plist FILE]
    Writes a small unsigned Mach-O file; more than one of arm64,x86_64 makes it universal.

Exit status: 0 done, 1 failed, 2 usage.
)";

// The "--name value" options and the other words.
struct CommandLine {
  std::map<std::string, std::string> options;
  std::vector<std::string> words;

  std::string option(const std::string& name, const std::string& otherwise = {}) const {
    const auto found = options.find(name);
    return found == options.end() ? otherwise : found->second;
  }
};

Outcome<CommandLine> parse(std::span<const std::string> arguments, const std::vector<std::string>& known) {
  CommandLine line;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& word = arguments[i];
    if (!word.starts_with("--")) {
      line.words.push_back(word);
      continue;
    }
    if (std::ranges::find(known, word) == known.end()) return refuse("unknown option {}", word);
    if (word == "--keep-nested") {
      line.options[word] = "yes";
    } else if (++i < arguments.size()) {
      line.options[word] = arguments[i];
    } else {
      return refuse("{} needs a value", word);
    }
  }
  return line;
}

std::vector<std::string> split(const std::string& list) {
  std::vector<std::string> parts;
  std::istringstream stream(list);
  for (std::string part; std::getline(stream, part, ',');) parts.push_back(part);
  return parts;
}

struct Variant {
  const char* name;
  LeafKind leaf;
  bool stamped;
  bool beforeExpiry;  // signed while the expired leaf was still valid
};

constexpr Variant kVariants[] = {{"valid", LeafKind::valid, true, false},
                                 {"unstamped", LeafKind::valid, false, false},
                                 {"self-signed", LeafKind::selfSigned, false, false},
                                 {"wrong-team", LeafKind::wrongTeam, true, false},
                                 {"expired", LeafKind::expired, true, false},
                                 {"expired-stamped", LeafKind::expired, true, true},
                                 {"expired-unstamped", LeafKind::expired, false, true},
                                 {"not-yet-valid", LeafKind::notYetValid, true, false}};

Outcome<std::chrono::sys_seconds> parseTime(const std::string& text) {
  if (text.empty()) return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  BERElement element;
  element.tag = kBERGeneralizedTime;
  element.content = viewOf(text);
  const auto time = timeOf(element);
  if (!time) return refuse("{} isn't a time like 20240131120000Z", text);
  return *time;
}

Outcome<std::vector<HashType>> parseDigests(const std::string& list) {
  std::vector<HashType> digests;
  for (const std::string& name : split(list)) {
    const std::size_t before = digests.size();
    for (const HashType type :
         {HashType::sha1, HashType::sha256, HashType::sha256Truncated, HashType::sha384}) {
      if (name == nameOf(type)) digests.push_back(type);
    }
    if (digests.size() == before) return refuse("unknown digest {}", name);
  }
  if (digests.empty()) return refuse("no digest given");
  return digests;
}

std::uint32_t parseFlags(const std::string& list) {
  std::uint32_t flags = 0;
  for (const std::string& name : split(list)) {
    if (name == "runtime") flags |= kHardenedRuntimeFlag;
    if (name == "expires") flags |= kForceExpirationFlag;
    if (!name.empty() && name.find_first_not_of("0123456789xabcdefABCDEF") == std::string::npos &&
        name[0] >= '0' && name[0] <= '9') {
      flags |= static_cast<std::uint32_t>(std::stoul(name, nullptr, 0));
    }
  }
  return flags;
}

Outcome<SigningOptions> readOptions(const CommandLine& line, const Variant* variant) {
  SigningOptions options;
  options.identifier = line.option("--identifier");
  if (line.options.contains("--team")) options.team = line.option("--team");
  options.flags = parseFlags(line.option("--flags"));
  options.keepNested = line.options.contains("--keep-nested");
  options.stamped = variant != nullptr && variant->stamped;
  options.timestampURL = line.option("--timestamp");
  const auto digests = parseDigests(line.option("--digests", "sha256"));
  if (!digests) return handOn(digests);
  options.digests = *digests;
  const auto time =
      parseTime(line.option("--time", variant != nullptr && variant->beforeExpiry ? "20210601000000Z" : ""));
  if (!time) return handOn(time);
  options.time = *time;
  if (line.options.contains("--entitlements")) {
    const auto file = MappedFile::open(line.option("--entitlements"), Links::follow);
    if (!file) return handOn(file);
    options.entitlements = copyOf(file->bytes());
  }
  return options;
}

int fail(const Failure& failure, int status) {
  std::fputs(("error: " + failure.reason + "\n").c_str(), stderr);
  return status;
}

int makeAuthority(std::span<const std::string> arguments) {
  const auto line = parse(arguments, {"--team", "--name"});
  if (!line) return fail(line.error(), kUsage);
  if (line->words.size() != 1) return fail({"make-authority takes one folder"}, kUsage);
  const auto made = TestAuthority::make(line->words.front(), line->option("--team", "LABTEAM001"),
                                        line->option("--name", "Lab Test"));
  return made ? kDone : fail(made.error(), kFailed);
}

Outcome<SigningIdentity> readIdentity(const CommandLine& line, LeafKind kind) {
  if (line.options.contains("--identity")) {
    std::ifstream file(line.option("--password-file"));
    std::string password;
    if (!std::getline(file, password)) return refuse("--password-file holds no password");
    return SigningIdentity::fromPKCS12(line.option("--identity"), password);
  }
  const auto authority = TestAuthority::load(line.option("--authority"));
  if (!authority) return handOn(authority);
  return SigningIdentity(*authority, kind);
}

int sign(std::span<const std::string> arguments) {
  const auto line = parse(
      arguments, {"--authority", "--variant", "--identity", "--password-file", "--timestamp", "--identifier",
                  "--team", "--digests", "--flags", "--entitlements", "--time", "--keep-nested"});
  if (!line) return fail(line.error(), kUsage);
  if (line->words.empty()) return fail({"no path given"}, kUsage);
  const std::string name = line->option("--variant", "valid");
  const auto* variant = std::ranges::find_if(kVariants, [&](const Variant& one) { return name == one.name; });
  const bool isAdHoc = name == "ad-hoc";
  if (!isAdHoc && variant == std::end(kVariants)) return fail({"unknown variant " + name}, kUsage);
  auto options = readOptions(*line, isAdHoc ? nullptr : variant);
  if (!options) return fail(options.error(), kUsage);
  const auto identity = isAdHoc ? Outcome<SigningIdentity>() : readIdentity(*line, variant->leaf);
  if (!identity) return fail(identity.error(), kFailed);
  const Signer signer(*identity, *options);
  for (const std::string& path : line->words) {
    if (const auto done = signer.sign(path); !done) return fail(done.error(), kFailed);
  }
  return kDone;
}

Outcome<Bytes> planMachO(const CommandLine& line) {
  static const std::map<std::string, std::uint32_t> kTypes{{"execute", 2}, {"dylib", 6}, {"bundle", 8}};
  static const std::map<std::string, std::pair<std::uint32_t, std::uint32_t>> kProcessors{
      {"arm64", {0x0100000c, 0}}, {"x86_64", {0x01000007, 3}}};
  MachOPlan plan;
  const auto type = kTypes.find(line.option("--type", "execute"));
  if (type == kTypes.end()) return refuse("unknown type {}", line.option("--type"));
  plan.fileType = type->second;
  plan.text = copyOf(viewOf(line.option("--text", "fixture")));
  if (line.options.contains("--size"))
    plan.text.resize(std::strtoull(line.option("--size").c_str(), nullptr, 10), 0x90);
  if (line.options.contains("--info-plist")) {
    const auto file = MappedFile::open(line.option("--info-plist"), Links::follow);
    if (!file) return handOn(file);
    plan.infoPlist = copyOf(file->bytes());
  }
  std::vector<Bytes> slices;
  for (const std::string& name : split(line.option("--arch", "arm64"))) {
    const auto processor = kProcessors.find(name);
    if (processor == kProcessors.end()) return refuse("unknown processor {}", name);
    std::tie(plan.cpuType, plan.cpuSubtype) = processor->second;
    slices.push_back(makeMachO(plan));
  }
  return slices.size() == 1 ? slices.front() : makeUniversal(slices);
}

int makeMachOFile(std::span<const std::string> arguments) {
  const auto line = parse(arguments, {"--arch", "--type", "--text", "--size", "--info-plist"});
  if (!line) return fail(line.error(), kUsage);
  if (line->words.size() != 1) return fail({"make-macho takes one file"}, kUsage);
  const auto file = planMachO(*line);
  if (!file) return fail(file.error(), kUsage);
  const std::filesystem::path path = line->words.front();
  if (const auto written = replaceFile(path, *file); !written) return fail(written.error(), kFailed);
  std::error_code error;
  std::filesystem::permissions(path, std::filesystem::perms(0755), error);
  return kDone;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
  const std::string command = words.empty() ? "" : words.front();
  const auto rest = std::span<const std::string>(words).subspan(std::min<std::size_t>(1, words.size()));
  if (command == "make-authority") return makeAuthority(rest);
  if (command == "sign") return sign(rest);
  if (command == "make-macho") return makeMachOFile(rest);
  const bool wantsHelp = command == "--help" || command == "-h";
  std::fputs(kHelp, wantsHelp ? stdout : stderr);
  return wantsHelp ? kDone : kUsage;
}
