// lab-publish: writes and checks the tree of a content delivery network.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "publisher/Arguments.h"
#include "publisher/Publication.h"
#include "publisher/TreeCheck.h"
#include "publisher/Versions.h"

namespace {

constexpr int kUsageStatus = 64;

int failed(const std::string& reason, int status = 1) {
  fmt::print(stderr, "lab-publish: {}\n", reason);
  return status;
}

int runVerify(const lab::PublishArguments& arguments) {
  const auto report = lab::checkTree(arguments);
  if (!report) return failed(report.error());
  for (const auto& line : report->packages) fmt::print("{}\n", line);
  for (const auto& line : report->leftovers) failed(line);
  for (const auto& line : report->problems) failed(line);
  return report->problems.empty() ? 0 : 1;
}

int runList(const lab::PublishArguments& arguments) {
  const auto lines = lab::listVersions(arguments);
  if (!lines) return failed(lines.error());
  for (const auto& line : *lines) fmt::print("{}\n", line);
  return 0;
}

int printed(const lab::OrReason<std::filesystem::path>& place) {
  if (!place) return failed(place.error());
  fmt::print("{}\n", place->string());
  return 0;
}

// `installer` and `probe` are scripts beside this program.
int runScript(char** words) {
  std::error_code error;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
  std::string script = (self.parent_path() / fmt::format("lab-publish-{}", words[0])).string();
  words[0] = script.data();
  execv(script.c_str(), words);
  return failed(fmt::format("{}: {}", script, std::strerror(errno)));
}

}  // namespace

int main(int argc, char** argv) {
  // The web server that serves the tree is usually another user.
  umask(S_IWGRP | S_IWOTH);
  const std::string_view command = argc > 1 ? argv[1] : "";
  if (command == "installer" || command == "probe") return runScript(argv + 1);
  const auto arguments = lab::parsePublishArguments({argv + 1, argv + argc});
  if (!arguments) return failed(arguments.error(), kUsageStatus);
  switch (arguments->command) {
    case lab::PublishArguments::Command::help: std::fputs(lab::publishUsage(), stdout); return 0;
    case lab::PublishArguments::Command::publish: return printed(lab::publish(*arguments));
    case lab::PublishArguments::Command::rollback: return printed(lab::rollBack(*arguments));
    case lab::PublishArguments::Command::withdraw: return printed(lab::withdraw(*arguments));
    case lab::PublishArguments::Command::list: return runList(*arguments);
    case lab::PublishArguments::Command::verify: return runVerify(*arguments);
  }
}
