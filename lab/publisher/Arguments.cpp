#include "publisher/Arguments.h"

#include <algorithm>
#include <map>

#include "Base/URL.h"

namespace lab {

namespace {

using Options = std::map<std::string, std::string>;

const std::map<std::string, PublishArguments::Command> kCommands{
    {"publish", PublishArguments::Command::publish},
    {"rollback", PublishArguments::Command::rollback},
    {"withdraw", PublishArguments::Command::withdraw},
    {"list", PublishArguments::Command::list},
    {"verify", PublishArguments::Command::verify}};

constexpr const char* kUsage =
    R"(lab-publish publish --tree DIR --app ID --version V --arch ARCH --image X.dmg [options]
lab-publish rollback --tree DIR --app ID --version V --arch ARCH [options]
lab-publish withdraw --tree DIR --app ID --version V --arch ARCH [options]
lab-publish list --tree DIR [--app ID] [options]
lab-publish verify --tree DIR [options]
lab-publish installer --help    makes the bundle of a release: signed, packed, with a list of its files
lab-publish probe --help        checks whether a live server meets the engine's needs

publish writes a disk image to the engine's path for it, with its metadata:

  DIR/desksuite/apps/default/ID/mac/ARCH/dmg/latest/   meta.json, release-notes.json, ID-V.dmg

  --tree DIR         the web server's folder for the base address (cdn.domains of installer_config.json)
  --app ID           brenna, tolvi, rulo or galdivane
  --version V        numbers between points, such as 2.1
  --arch ARCH        arm64, x64 or universal
  --image X.dmg      a UDIF disk image
  --notes FILE       release notes, a JSON file that the engine can read
  --alternate URL    a second address of the same image, https on a trusted host
  --destination NAME the image's name in the folder, instead of ID-V.dmg
  --team TEAM        image and app must be signed by this team; for publish, rollback and verify
  --configuration F  the build's installer_config.json: its names, trusted hosts and bundle identifiers
  --distribution-root NAME, --apps-root NAME, --flavour NAME, --release NAME
                     single names of the build, instead of those in its configuration

The image must have the app ID in version V.

The new package is prepared in a hidden folder beside the old one and replaces it in one step: a reader gets
the old package or the new one, also when this program is killed. Earlier images stay and are never changed,
because they may still be downloaded.

list prints the version on offer and the other images. rollback offers one of those again, after the checks of
publish; it doesn't restore release notes (--notes sets them), and a newer copy on a machine isn't changed.
withdraw removes one of them, in one step. It refuses the image on offer: without its metadata, all installers
would consider their source retired. Roll back first.

verify reads every package in the tree by the engine's rules, checks its image, and reports faults: also a folder
without metadata, one that the web server's user can't enter, and an app that has another version, or none, for
another processor. With --configuration or a name it also reports apps that this build wouldn't find.
The leftovers of an interrupted publication are reported and harmless; the next publication to the same place
removes them.

Exit status: 0 done or valid, 1 failed or invalid, 64 usage.
)";

OrReason<Options> readOptions(const std::vector<std::string>& words) {
  Options options;
  for (std::size_t at = 1; at < words.size(); at += 2) {
    if (!words[at].starts_with("--")) return because("'{}' isn't understood; see --help", words[at]);
    if (at + 1 == words.size()) return because("{} needs a value", words[at]);
    options[words[at].substr(2)] = words[at + 1];
  }
  return options;
}

std::optional<std::string> take(Options& options, const std::string& name) {
  const auto found = options.extract(name);
  return found ? std::optional{found.mapped()} : std::nullopt;
}

OrReason<> takeConfiguration(Options& options, PublishArguments& arguments) {
  if (const auto file = take(options, "configuration")) {
    auto read = Configuration::read(*file);
    if (!read) return std::unexpected(read.error());
    arguments.configuration = std::move(*read);
    arguments.isConfigured = true;
  }
  LayoutNames& names = arguments.configuration.names;
  for (const auto& [option, field] :
       {std::pair{"distribution-root", &LayoutNames::distributionRoot},
        std::pair{"apps-root", &LayoutNames::appsRoot}, std::pair{"flavour", &LayoutNames::flavour},
        std::pair{"release", &LayoutNames::release}}) {
    const auto given = take(options, option);
    arguments.isConfigured = arguments.isConfigured || given.has_value();
    names.*field = given.value_or(names.*field);
    if (auto checked = checkPathComponent(std::string{"--"} + option, names.*field); !checked) return checked;
  }
  return {};
}

OrReason<> checkAlternate(const PublishArguments& arguments) {
  if (!arguments.alternateURL) return {};
  const auto url = installer::URL::parse(*arguments.alternateURL);
  if (url) return checkAlternate(*url, arguments.configuration);
  return because("'{}' is no https address", *arguments.alternateURL);
}

OrReason<> takePackage(Options& options, PublishArguments& arguments) {
  arguments.app = take(options, "app").value_or("");
  arguments.version = take(options, "version").value_or("");
  arguments.arch = take(options, "arch").value_or("");
  arguments.destination =
      take(options, "destination").value_or(fmt::format("{}-{}.dmg", arguments.app, arguments.version));
  if (arguments.command != PublishArguments::Command::withdraw) {
    arguments.notes = take(options, "notes");
    arguments.alternateURL = take(options, "alternate");
  }
  const bool takesImage = arguments.command == PublishArguments::Command::publish;
  if (takesImage) arguments.image = take(options, "image").value_or("");
  if (takesImage && arguments.image.empty()) return because("--image is missing");
  for (const auto& checked :
       {checkApp(arguments.app), checkVersion(arguments.version), checkArch(arguments.arch),
        checkPathComponent("--destination", arguments.destination), checkAlternate(arguments)}) {
    if (!checked) return checked;
  }
  return {};
}

}  // namespace

const char* publishUsage() {
  return kUsage;
}

OrReason<PublishArguments> parsePublishArguments(const std::vector<std::string>& words) {
  PublishArguments arguments;
  const auto asksForHelp = [](const std::string& word) { return word == "--help" || word == "-h"; };
  if (std::ranges::any_of(words, asksForHelp)) return arguments;
  const auto command = words.empty() ? kCommands.end() : kCommands.find(words[0]);
  if (command == kCommands.end())
    return because("say publish, rollback, withdraw, list or verify; see --help");
  auto options = readOptions(words);
  if (!options) return std::unexpected(options.error());
  arguments.command = command->second;
  arguments.tree = take(*options, "tree").value_or("");
  if (arguments.tree.empty()) return because("--tree is missing");
  if (auto taken = takeConfiguration(*options, arguments); !taken) return std::unexpected(taken.error());
  using enum PublishArguments::Command;
  if (arguments.command != list && arguments.command != withdraw) arguments.team = take(*options, "team");
  if (arguments.command == list) arguments.app = take(*options, "app").value_or("");
  if (arguments.command != list && arguments.command != verify) {
    if (auto taken = takePackage(*options, arguments); !taken) return std::unexpected(taken.error());
  }
  if (!options->empty()) return because("--{} isn't understood; see --help", options->begin()->first);
  return arguments;
}

}  // namespace lab
