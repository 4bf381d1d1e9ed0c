// lab-sign: makes a test authority, signs fixtures with it, and makes small Mach-O files to sign.
#include <chrono>
#include <fstream>
#include <map>
#include <tuple>

#include "BER.h"
#include "CodeDirectory.h"
#include "MachOWriter.h"
#include "MappedFile.h"
#include "Signer.h"
#include "support/CommandLine.h"

namespace {

using namespace lab;

constexpr int kFailed = 1;
constexpr int kUsage = 2;

constexpr const char* kFooter = R"(Each subcommand has its own --help. Examples:
  lab-sign make-authority authority --team TEAMID0000
  lab-sign make-macho Some.app/Contents/MacOS/Some --arch x86_64,arm64
  lab-sign sign --authority authority Some.app Package.dmg
  lab-sign sign --variant ad-hoc Some.app
  lab-sign sign --identity release.p12 --password-file password --timestamp http://time.example Some.app

Exit status: 0 done, 1 failed, 2 usage.)";

constexpr const char* kVariantHelp = R"(valid (default), unstamped, ad-hoc, self-signed, wrong-team,
expired            signed after the certificate's end, stamped then: invalid
expired-stamped    signed and stamped before the certificate's end: valid
expired-unstamped  signed before the certificate's end, no timestamp: valid, expired
not-yet-valid      the certificate begins in 2048: invalid)";

struct Variant {
  std::optional<LeafKind> leaf;  // none for ad hoc code
  bool stamped = false;
  bool beforeExpiry = false;  // signed while the expired leaf was still valid
};

const std::map<std::string, Variant> kVariants{{"valid", {LeafKind::valid, true}},
                                               {"unstamped", {LeafKind::valid}},
                                               {"ad-hoc", {}},
                                               {"self-signed", {LeafKind::selfSigned}},
                                               {"wrong-team", {LeafKind::wrongTeam, true}},
                                               {"expired", {LeafKind::expired, true}},
                                               {"expired-stamped", {LeafKind::expired, true, true}},
                                               {"expired-unstamped", {LeafKind::expired, false, true}},
                                               {"not-yet-valid", {LeafKind::notYetValid, true}}};

const std::map<std::string, HashType> kDigests{{"sha1", HashType::sha1},
                                               {"sha256", HashType::sha256},
                                               {"sha256t", HashType::sha256Truncated},
                                               {"sha384", HashType::sha384}};

const std::map<std::string, std::uint32_t> kFlags{{"runtime", kHardenedRuntimeFlag},
                                                  {"expires", kForceExpirationFlag}};

const std::map<std::string, std::uint32_t> kTypes{{"execute", 2}, {"dylib", 6}, {"bundle", 8}};

const std::map<std::string, std::pair<std::uint32_t, std::uint32_t>> kProcessors{{"arm64", {0x0100000c, 0}},
                                                                                 {"x86_64", {0x01000007, 3}}};

// The help of the options lists the names.
template <class Names>
CLI::Validator oneOf(const Names& names) {
  return CLI::IsMember(names).description("");
}

// Each subcommand adds itself to the program, and leaves its outcome.
class MakeAuthority {
 public:
  MakeAuthority(CLI::App& program, Outcome<void>& outcome) {
    auto& command = *program.add_subcommand(
        "make-authority",
        "Makes a test authority: root.pem (for linux_host.json), an intermediate and leaves like Developer ID ones, a\n"
        "timestamping leaf, and their unprotected keys.");
    command.add_option("FOLDER", folder_, "created if missing")->required();
    command.add_option("--team", team_, "the leaves' team")->capture_default_str();
    command.add_option("--name", name_, "part of the certificates' names")->capture_default_str();
    command.callback([&] { outcome = TestAuthority::make(folder_, team_, name_); });
  }

 private:
  std::string folder_, team_ = "LABTEAM001", name_ = "Lab Test";
};

class Sign {
 public:
  Sign(CLI::App& program, Outcome<void>& outcome) {
    auto& command = *program.add_subcommand(
        "sign",
        "Signs Mach-O files (thin and universal), bundles from the inside out (also those whose main "
        "executable is a\nscript), and UDIF disk images, in place.");
    command.add_option("PATH", paths_, "what to sign")->required();
    addIdentity(command);
    addContents(command);
    command.callback([&] { outcome = run(); });
  }

 private:
  void addIdentity(CLI::App& command) {
    command.add_option("--authority", authority_, "the folder of a test authority");
    command.add_option("--variant", variant_, kVariantHelp)->check(oneOf(kVariants));
    command.add_option("--identity", identity_,
                       "a .p12 key with its certificates, instead of a test authority's");
    command.add_option("--password-file", passwordFile_, "file whose first line is the identity's password");
    command.add_option("--write-root", rootFile_, "write the identity's root certificate to this PEM file");
    command.add_option("--timestamp", options_.timestampURL,
                       "an RFC 3161 server for secure timestamps; without one the signatures have none");
  }

  void addContents(CLI::App& command) {
    command.add_option("--identifier", options_.identifier, "else CFBundleIdentifier, else the file's name");
    command.add_option("--team", options_.team,
                       "written into the code directory instead of the leaf's own team");
    command
        .add_option("--digests", digests_,
                    "of sha1,sha256,sha256t,sha384; one code directory each, the first is the primary one")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(oneOf(kDigests));
    command.add_option("--flags", flags_, "runtime, expires, or numbers")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->transform(CLI::Transformer(kFlags).description(""));
    command.add_option("--entitlements", entitlements_, "a property list")->check(CLI::ExistingFile);
    command.add_option_function<std::string>(
        "--time", [this](const std::string& text) { takeTime(text); },
        "signing time, e.g. 20240131120000Z; default: now");
    command.add_flag("--keep-nested", options_.keepNested,
                     "seal nested code unchanged instead of signing it again");
  }

  void takeTime(const std::string& text) {
    BERElement element;
    element.tag = kBERGeneralizedTime;
    element.content = viewOf(text);
    time_ = timeOf(element);
    if (!time_) throw CLI::ValidationError(text + " isn't a time like 20240131120000Z");
  }

  Outcome<void> run() {
    using namespace std::chrono;
    const Variant& variant = kVariants.at(variant_);
    options_.stamped = variant.stamped;
    options_.time = time_.value_or(variant.beforeExpiry ? sys_days{2021y / June / 1}
                                                        : floor<seconds>(system_clock::now()));
    for (const std::uint32_t flag : flags_) options_.flags |= flag;
    options_.digests.clear();
    for (const std::string& name : digests_) options_.digests.push_back(kDigests.at(name));
    if (!entitlements_.empty()) {
      const auto file = MappedFile::open(entitlements_, Links::follow);
      if (!file) return handOn(file);
      options_.entitlements = copyOf(file->bytes());
    }
    const auto identity = readIdentity(variant.leaf);
    if (!identity) return handOn(identity);
    if (auto suits = checkIdentity(*identity); !suits) return handOn(suits);
    const Signer signer(*identity, options_);
    for (const std::string& path : paths_) {
      if (auto done = signer.sign(path); !done) return handOn(done);
    }
    return {};
  }

  // The variants of a test authority include invalid ones, so only another identity is checked.
  Outcome<void> checkIdentity(const SigningIdentity& identity) const {
    if (identity_.empty() || identity.isAdHoc()) return {};
    if (auto valid = identity.checkTime(options_.time); !valid) return handOn(valid);
    return rootFile_.empty() ? Outcome<void>() : identity.writeRoot(rootFile_);
  }

  Outcome<SigningIdentity> readIdentity(std::optional<LeafKind> leaf) const {
    if (!leaf) return {};
    if (!identity_.empty()) {
      std::ifstream file(passwordFile_);
      std::string password;
      if (!std::getline(file, password)) return refuse("--password-file holds no password");
      return SigningIdentity::fromPKCS12(identity_, password);
    }
    const auto authority = TestAuthority::load(authority_);
    if (!authority) return handOn(authority);
    return SigningIdentity(*authority, *leaf);
  }

  std::string authority_, variant_ = "valid", identity_, passwordFile_, rootFile_, entitlements_;
  std::vector<std::string> paths_, digests_{"sha256"};
  std::vector<std::uint32_t> flags_;
  std::optional<std::chrono::sys_seconds> time_;
  SigningOptions options_;
};

class MakeMachO {
 public:
  MakeMachO(CLI::App& program, Outcome<void>& outcome) {
    auto& command = *program.add_subcommand("make-macho", "Writes a small unsigned Mach-O file.");
    command.add_option("FILE", path_, "made or replaced")->required();
    command.add_option("--arch", processors_, "arm64 (default), x86_64 or arm64,x86_64 for a universal file")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(oneOf(kProcessors));
    command.add_option("--type", type_, "execute (default), dylib or bundle")->check(oneOf(kTypes));
    command.add_option("--text", text_, "the content of the section __text")->capture_default_str();
    command.add_option("--size", size_, "of that section, in bytes");
    command.add_option("--info-plist", infoPlist_, "the content of the section __info_plist")
        ->check(CLI::ExistingFile);
    command.callback([&] { outcome = run(); });
  }

 private:
  Outcome<void> run() const {
    MachOPlan plan;
    plan.fileType = kTypes.at(type_);
    plan.text = copyOf(viewOf(text_));
    if (size_) plan.text.resize(*size_, 0x90);
    if (!infoPlist_.empty()) {
      const auto file = MappedFile::open(infoPlist_, Links::follow);
      if (!file) return handOn(file);
      plan.infoPlist = copyOf(file->bytes());
    }
    std::vector<Bytes> slices;
    for (const std::string& name : processors_) {
      std::tie(plan.cpuType, plan.cpuSubtype) = kProcessors.at(name);
      slices.push_back(makeMachO(plan));
    }
    if (auto written = replaceFile(path_, slices.size() == 1 ? slices.front() : makeUniversal(slices));
        !written)
      return written;
    std::error_code error;
    std::filesystem::permissions(path_, std::filesystem::perms(0755), error);
    return {};
  }

  std::string path_, type_ = "execute", text_ = "fixture", infoPlist_;
  std::vector<std::string> processors_{"arm64"};
  std::optional<std::size_t> size_;
};

}  // namespace

int main(int argc, char** argv) {
  CLI::App program{"Makes test authorities, Mach-O files, and signatures.", "lab-sign"};
  program.require_subcommand(1)->footer(kFooter);
  Outcome<void> outcome;
  const MakeAuthority makeAuthority{program, outcome};
  const Sign sign{program, outcome};
  const MakeMachO makeMachO{program, outcome};
  if (const auto ended = readCommandLine(program, argc, argv, kUsage)) return *ended;
  if (outcome) return 0;
  fmt::print(stderr, "lab-sign: {}\n", outcome.error().reason);
  return kFailed;
}
