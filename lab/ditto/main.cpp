// ditto: copies bundles, packs folders.
#include <clocale>
#include <cstdio>
#include <string>
#include <vector>

#include "ditto/BundleCopy.h"
#include "ditto/ZipArchive.h"
#include "support/Interruption.h"

namespace {

constexpr const char* kUsage = R"(usage: ditto [--noqtn] [-V] SOURCE DESTINATION
       ditto -c -k [--sequesterRsrc] [--keepParent] SOURCE ARCHIVE
Copies SOURCE and merges it into an existing DESTINATION; --noqtn doesn't copy the quarantine attribute.
With -c -k, packs the content of SOURCE into the PKZip file ARCHIVE. Extended attributes aren't packed.
)";

struct Request {
  bool create = false;
  bool zip = false;
  bool dropQuarantine = false;
  bool keepParent = false;
  std::vector<std::string> operands;
};

lab::OrReason<Request> parse(int argc, char** argv) {
  Request request;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word == "-c")
      request.create = true;
    else if (word == "-k")
      request.zip = true;
    else if (word == "-ck")
      request.create = request.zip = true;
    else if (word == "--noqtn")
      request.dropQuarantine = true;
    else if (word == "--keepParent")
      request.keepParent = true;
    else if (word == "--sequesterRsrc" || word == "--rsrc" || word == "-V")
      continue;
    else if (word.starts_with("-"))
      return lab::because("unknown option {}", word);
    else
      request.operands.push_back(word);
  }
  if (request.operands.size() != 2) return lab::because("a source and a destination are needed");
  if (request.create != request.zip) return lab::because("only -c together with -k is supported");
  return request;
}

lab::OrReason<> obey(const Request& request) {
  const auto& [source, destination] = std::pair{request.operands[0], request.operands[1]};
  if (request.create) {
    return lab::packZip(source, destination, request.keepParent ? lab::Parent::keep : lab::Parent::leaveOut);
  }
  return lab::copyLikeDitto(source, destination,
                            request.dropQuarantine ? lab::QuarantineMark::drop : lab::QuarantineMark::keep);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (std::string{argv[1]} == "--help" || std::string{argv[1]} == "-h")) {
    fmt::print("{}", kUsage);
    return 0;
  }
  lab::holdInterruptions();
  // libarchive converts file names by the locale.
  std::setlocale(LC_ALL, "C.UTF-8");
  const auto request = parse(argc, argv);
  if (!request) {
    fmt::print(stderr, "ditto: {}\n{}", request.error(), kUsage);
    return 1;
  }
  const auto done = obey(*request);
  if (done) return 0;
  fmt::print(stderr, "ditto: {}\n", done.error());
  return lab::interruption() != 0 ? lab::exitStatusOf(lab::interruption()) : 1;
}
