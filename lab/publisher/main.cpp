// lab-publish: writes and checks the tree of a content delivery network.
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

#include "Base/POSIX/LinuxHostSettings.h"
#include "Base/URL.h"
#include "publisher/Arguments.h"
#include "publisher/Publication.h"
#include "publisher/TreeCheck.h"
#include "publisher/Versions.h"
#include "support/CommandLine.h"

namespace {

using lab::ExpectedTeam;
using lab::PublishArguments;

constexpr const char* kHelp = R"(Each subcommand has its own --help. Examples:
  lab-publish publish --tree DIR --app brenna --version 2.1 --arch arm64 --image brenna.dmg --notes notes.json
  lab-publish rollback --tree DIR --app brenna --version 2.0 --arch arm64
  lab-publish verify --tree DIR --configuration installer_config.json

A package is in this folder of the tree, unless the build has other names. Its image must have the app in its version:

  desksuite/apps/default/APP/mac/ARCH/dmg/latest/   meta.json, release-notes.json, APP-VERSION.dmg

The new package is prepared in a hidden folder beside the old one and replaces it in one step: a reader gets the old
package or the new one, also when this program is killed. A file system that can't exchange two folders gets one file
after the other, meta.json last: a reader may get the new notes with the old image. Earlier images stay and are never
changed, because they may still be downloaded.

rollback offers an earlier image again, after the checks of publish; it doesn't restore release notes (--notes sets
them), and a newer copy on a machine isn't changed. withdraw removes an earlier image, in one step. It refuses the
image on offer: without its metadata, all installers would consider their source retired. Roll back first.

verify reads every package in the tree by the engine's rules, checks its image, and reports faults: also a folder
without metadata, one that the web server's user can't enter, and an app that has another version, or none, for another
processor. With a name it also reports apps that have packages only at other places, and with --configuration every app
of the build that has none at its place. The leftovers of an interrupted publication are reported and harmless; the next
publication to the same place removes them.

Exit status: 0 done or valid, 1 failed or invalid, 64 usage.)";

constexpr std::pair<const char*, std::string lab::LayoutNames::*> kNames[] = {
    {"--distribution-root", &lab::LayoutNames::distributionRoot},
    {"--apps-root", &lab::LayoutNames::appsRoot},
    {"--flavour", &lab::LayoutNames::flavour},
    {"--release", &lab::LayoutNames::release}};

int failed(const std::string& reason) {
  fmt::print(stderr, "lab-publish: {}\n", reason);
  return 1;
}

int runVerify(PublishArguments& arguments) {
  const auto report = lab::checkTree(arguments);
  if (!report) return failed(report.error());
  for (const auto& line : report->packages) fmt::print("{}\n", line);
  for (const auto& line : report->leftovers) failed(line);
  for (const auto& line : report->problems) failed(line);
  return report->problems.empty() ? 0 : 1;
}

int runList(PublishArguments& arguments) {
  const auto lines = lab::listVersions(arguments);
  if (!lines) return failed(lines.error());
  for (const auto& line : *lines) fmt::print("{}\n", line);
  return 0;
}

lab::OrReason<> checkAlternate(const PublishArguments& arguments) {
  if (!arguments.alternateURL) return {};
  const auto url = installer::URL::parse(*arguments.alternateURL);
  if (url) return checkAlternate(*url, arguments.configuration);
  return lab::because("'{}' isn't an https address", *arguments.alternateURL);
}

// Runs `publish`, `rollBack` or `withdraw`.
template <lab::OrReason<std::filesystem::path> (*change)(const PublishArguments&)>
int runChange(PublishArguments& arguments) {
  if (arguments.destination.empty())
    arguments.destination = fmt::format("{}-{}.dmg", arguments.app, arguments.version);
  for (const auto& checked :
       {lab::checkApp(arguments.app), lab::checkVersion(arguments.version), lab::checkArch(arguments.arch),
        lab::checkImageName(arguments.destination), checkAlternate(arguments)}) {
    lab::orUsageError(checked);
  }
  const auto place = change(arguments);
  if (!place) return failed(place.error());
  fmt::print("{}\n", place->string());
  return 0;
}

// `installer` and `probe` are scripts beside this program.
int runScript(char** words) {
  std::string script = installer::joined(installer::parentFolder(installer::executablePath()),
                                         fmt::format("lab-publish-{}", words[0]));
  words[0] = script.data();
  execv(script.c_str(), words);
  return failed(fmt::format("{}: {}", script, std::strerror(errno)));
}

// The subcommands fill one record, and set the exit status.
class CommandLine {
 public:
  CommandLine() {
    program_.require_subcommand(1)->footer(kHelp);
    auto& publish =
        addChange("publish", "Writes a disk image to the engine's path for it, with its metadata.",
                  runChange<lab::publish>);
    publish.add_option("--image", arguments_.image, "a UDIF disk image")->required();
    addOffer(publish);
    addOffer(addChange("rollback", "Offers an earlier image again.", runChange<lab::rollBack>));
    addChange("withdraw", "Removes an earlier image.", runChange<lab::withdraw>);
    add("list", "Prints the version on offer and the other images.", runList)
        .add_option("--app", arguments_.app, "an app of the catalog, such as brenna; all by default");
    addTeam(add("verify", "Checks every package in the tree by the engine's rules.", runVerify));
    addScript("installer", "Makes the bundle of a release: signed, packed, with a list of its files.");
    addScript("probe", "Checks whether a live server meets the engine's requirements.");
  }

  int run(int argc, char** argv) {
    words_ = argv;
    return lab::readCommandLine(program_, argc, argv).value_or(status_);
  }

 private:
  CLI::App& add(const char* name, const char* description, int (*act)(PublishArguments&)) {
    auto& command = *program_.add_subcommand(name, description);
    command
        .add_option("--tree", arguments_.tree, "the web server's folder for the base address (cdn.domains)")
        ->required();
    auto& configuration = arguments_.configuration;
    const auto read = [&](const std::string& file) {
      configuration = lab::orUsageError(lab::Configuration::read(file));
    };
    std::vector<CLI::Option*> options{command.add_option_function<std::string>(
        "--configuration", read,
        "the build's installer_config.json: names, trusted hosts, bundle identifiers")};
    for (const auto& [option, field] : kNames)
      options.push_back(command.add_option(option, configuration.names.*field,
                                           "instead of the name in the build's configuration"));
    for (auto* option : options) option->each([this](const std::string&) { arguments_.isConfigured = true; });
    command.callback([this, act] {
      for (const auto& [option, field] : kNames)
        lab::orUsageError(lab::checkPathComponent(option, arguments_.configuration.names.*field));
      status_ = act(arguments_);
    });
    return command;
  }

  CLI::App& addChange(const char* name, const char* description, int (*act)(PublishArguments&)) {
    auto& command = add(name, description, act);
    command.add_option("--app", arguments_.app, "an app of the catalog, such as brenna")->required();
    command.add_option("--version", arguments_.version, "numbers separated by points, such as 2.1")
        ->required();
    command.add_option("--arch", arguments_.arch, "arm64, x64 or universal")->required();
    command.add_option("--destination", arguments_.destination,
                       "the image's name, instead of APP-VERSION.dmg");
    return command;
  }

  void addOffer(CLI::App& command) {
    command.add_option("--notes", arguments_.notes, "release notes, a JSON file that the engine can read");
    command.add_option("--alternate", arguments_.alternateURL,
                       "a second address of the same image, https on a trusted host");
    addTeam(command);
  }

  void addTeam(CLI::App& command) {
    const auto given = [&](const char* name, auto ExpectedTeam::* field, const char* description) {
      const auto set = [this, field](const std::string& value) {
        if (!arguments_.team) arguments_.team.emplace();
        *arguments_.team.*field = value;
      };
      return command.add_option_function<std::string>(name, set, description);
    };
    auto* team = given("--team", &ExpectedTeam::identifier, "image and app must be signed by this team");
    auto* authority =
        given("--test-authority", &ExpectedTeam::testAuthority,
              "root (PEM) that --team trusts besides the platform's, instead of that in linux_host.json");
    authority->needs(team);
    given("--timestamp-authority", &ExpectedTeam::timestampAuthority,
          "root (PEM) of the test authority's time server, if it is another one")
        ->needs(authority);
  }

  // The script reads its own options.
  void addScript(const char* name, const char* description) {
    auto* command = program_.add_subcommand(name, description)->prefix_command();
    command->set_help_flag();
    command->callback([this] { status_ = runScript(words_ + 1); });
  }

  CLI::App program_{"Writes and checks the tree of a content delivery network.", "lab-publish"};
  PublishArguments arguments_;
  char** words_ = nullptr;
  int status_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  // The web server that serves the tree is usually another user.
  umask(S_IWGRP | S_IWOTH);
  return CommandLine{}.run(argc, argv);
}
