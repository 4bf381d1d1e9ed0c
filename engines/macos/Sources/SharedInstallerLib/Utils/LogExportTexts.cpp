#include "Utils/LogExportTexts.h"

#include <fmt/format.h>

#include "Base/Text.h"
#include "Models/AppConstants.h"
#include "Utils/LocalTime.h"

namespace installer::LogExportTexts {

namespace {

// The tag follows the timestamp directly. An untagged line has its source location there, so a message that
// contains "[WARN]" doesn't match.
bool isTagged(std::string_view line) {
  const auto bracket = line.find(']');
  if (bracket == std::string_view::npos) return false;
  line.remove_prefix(bracket + 1);
  line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
  return line.starts_with("[WARN]") || line.starts_with("[ERROR]");
}

}  // namespace

std::string archiveName(TimePoint time) {
  return fmt::format("KeloDeskInstaller-logs-{}.zip", LocalTime::fileStamp(time));
}

std::string manifest(const ManifestFacts& facts, const std::vector<std::string>& notes) {
  auto text = fmt::format(
      "Kelo Desk Apps Installer — log bundle\n"
      "=========================================\n"
      "\n"
      "Collected:        {}\n"
      "Engine version:   {}\n"
      "Platform:         macOS {}\n"
      "Architecture:     {}\n"
      "Files included:   {}\n"
      "\n"
      "Sources\n"
      "-------\n",
      LocalTime::dateAndTime(facts.time), kEngineVersion, facts.systemVersion,
      facts.isArm64 ? "arm64" : "x86_64", facts.copied);
  for (const auto& note : notes) text += note + '\n';
  return repairedUTF8(text);
}

void Digest::add(const std::string& fileName, std::string_view contents) {
  ++files_;
  if (!isUTF8(contents)) return;
  std::string kept;
  int count = 0;
  for (const auto line : nonEmptyPieces(contents, '\n')) {
    if (!isTagged(line)) continue;
    kept.append(line) += '\n';
    ++count;
  }
  if (count == 0) return;
  sections_ += fmt::format("\n--- {} ({} line(s)) ---\n{}", repairedUTF8(fileName), count, kept);
  keptLines_ += count;
}

std::string Digest::text() const {
  std::string text =
      "Kelo Desk Apps Installer — WARN/ERROR digest\n"
      "===============================================\n"
      "\n"
      "Every [WARN]/[ERROR] line from the .log files in this bundle, in file order.\n"
      "This is a digest for triage — the complete logs are alongside it.\n";
  if (keptLines_ > 0) return text + sections_;
  return text + fmt::format(
                    "\n"
                    "No WARN or ERROR lines were logged.\n"
                    "(Lines written before engine {} carry no level tag and cannot appear here;\n"
                    " if this bundle came from an upgraded install, read the .log files directly.)\n",
                    kEngineVersion);
}

}  // namespace installer::LogExportTexts
