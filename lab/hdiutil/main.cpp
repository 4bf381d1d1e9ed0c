// hdiutil: attaches, detaches and lists disk images.
#include <algorithm>
#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

#include "hdiutil/Attachment.h"
#include "hdiutil/Report.h"
#include "support/Files.h"
#include "support/Interruption.h"
#include "support/MachinePlaces.h"

namespace {

using Words = std::vector<std::string>;

constexpr const char* kUsage = R"(usage: hdiutil attach IMAGE [-plist] [-nobrowse] [-noverify] [-readonly]
       hdiutil detach MOUNT_POINT_OR_DISK [-force] [-quiet]
       hdiutil info [-plist]
Opens UDIF disk images (HFS+ or APFS) below the machine's Volumes folder, read-only. Needs 7zz.
attach verifies the image's checksum unless -noverify is given; -nobrowse sets the mount point's sticky bit;
-readonly always applies.
detach always works as with -force.
)";

// The command line after the verb: at most one operand, and supported options.
struct Request {
  std::string operand;
  Words options;
  bool has(const std::string& option) const { return std::ranges::find(options, option) != options.end(); }
};

lab::OrReason<Request> parse(const Words& words, const Words& known) {
  Request request;
  for (const std::string& word : words) {
    if (std::ranges::find(known, word) != known.end()) {
      request.options.push_back(word);
    } else if (word.starts_with("-")) {
      return lab::because("unknown option {}", word);
    } else if (!request.operand.empty()) {
      return lab::because("one argument too many: {}", word);
    } else {
      request.operand = word;
    }
  }
  return request;
}

int failed(const std::string& what, const std::string& reason) {
  fmt::print(stderr, "hdiutil: {} failed - {}\n", what, reason);
  return lab::interruption() != 0 ? lab::exitStatusOf(lab::interruption()) : 1;
}

int misused(const std::string& reason) {
  fmt::print(stderr, "hdiutil: {}\n{}", reason, kUsage);
  return 1;
}

int attachImage(const lab::MountTable& table, const Words& words) {
  const auto request =
      parse(words, {"-plist", "-nobrowse", "-noverify", "-readonly", "-quiet", "-noautoopen"});
  if (!request || request->operand.empty()) return misused(request ? "attach: no image" : request.error());
  const lab::AttachOptions options{.verifiesChecksums = !request->has("-noverify"),
                                   .hidesVolume = request->has("-nobrowse")};
  const auto tell = [&request](const lab::Mount& mount) -> lab::OrReason<> {
    const auto told =
        lab::writeAll(STDOUT_FILENO, request->has("-plist") ? attachedList(mount) : attachedLines(mount));
    if (told && lab::interruption() != 0) return lab::because("interrupted");
    return told;
  };
  const auto attached = lab::attach(table, request->operand, options, tell);
  return attached ? 0 : failed("attach", attached.error());
}

int detachImage(const lab::MountTable& table, const Words& words) {
  const auto request = parse(words, {"-force", "-quiet"});
  if (!request || request->operand.empty())
    return misused(request ? "detach: no mount point" : request.error());
  const auto mount = lab::detach(table, request->operand);
  const bool quiet = request->has("-quiet");
  if (!mount && quiet) return 1;
  if (!mount) return failed("detach", mount.error());
  if (!quiet) fmt::print("\"{}\" ejected.\n", mount->disk.substr(mount->disk.rfind('/') + 1));
  return 0;
}

int showInfo(const lab::MountTable& table, const Words& words) {
  const auto request = parse(words, {"-plist"});
  if (!request || !request->operand.empty()) return misused("info takes -plist only");
  const auto mounts = table.mounts();
  if (!mounts) return failed("info", mounts.error());
  fmt::print("{}", request->has("-plist") ? infoList(*mounts) : infoLines(*mounts));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  lab::holdInterruptions();
  Words words(argv + 1, argv + argc);
  if (words.empty()) return misused("no verb");
  const std::string verb = words.front();
  words.erase(words.begin());
  if (verb == "help" || verb == "--help" || verb == "-h") {
    fmt::print("{}", kUsage);
    return 0;
  }
  const auto machine = lab::machine();
  if (!machine) return failed(verb, machine.error());
  const auto table = lab::MountTable::open(machine->volumes());
  if (!table) return failed(verb, table.error());
  if (verb == "attach") return attachImage(*table, words);
  if (verb == "detach" || verb == "eject") return detachImage(*table, words);
  if (verb == "info") return showInfo(*table, words);
  return misused("unknown verb " + verb);
}
