// The functions under fuzzing: one for each kind of text that the engine reads from outside. Besides crashes
// and hangs, each checks laws, for example a value's documented form, and aborts at the first broken one.
#pragma once

#include <cstdint>
#include <source_location>
#include <span>
#include <string_view>

namespace installer::test {

void fuzzAttachList(std::string_view text);           // the output of `hdiutil attach -plist`
void fuzzConfiguration(std::string_view text);        // installer_config.json
void fuzzHTTPHead(std::string_view text);             // a server's whole answer
void fuzzInfoPlist(std::string_view text);            // a bundle's Info.plist
void fuzzPackageIndex(std::string_view text);         // packages.json
void fuzzPackageMeta(std::string_view text);          // meta.json
void fuzzProtocolCommandLine(std::string_view text);  // one argument per line
void fuzzReleaseNotes(std::string_view text);         // release-notes.json
void fuzzShellQuoting(std::string_view text);         // one word
void fuzzSilentCommandLine(std::string_view text);    // one argument per line
void fuzzStdinLines(std::string_view text);           // standard input of a run
void fuzzURLTrust(std::string_view text);             // one address
void fuzzVersionComparison(std::string_view text);    // three versions, one per line

struct FuzzTarget {
  std::string_view name;  // also the name of its folder in corpus/
  void (*run)(std::string_view text);
};
std::span<const FuzzTarget> fuzzTargets();

// Runs the target of that name.
void fuzz(std::string_view name, std::span<const std::uint8_t> input);

// Ends the process with a message unless `holds`.
void require(bool holds, std::string_view law,
             const std::source_location& place = std::source_location::current());

}  // namespace installer::test
