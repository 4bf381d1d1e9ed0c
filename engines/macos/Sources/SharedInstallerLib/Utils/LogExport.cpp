#include "Utils/LogExport.h"

#include <algorithm>
#include <fmt/format.h>
#include <vector>

#include "Platform/Machine.h"
#include "Utils/Log.h"
#include "Utils/LogExportTexts.h"
#include "Utils/Logger.h"
#include "Utils/SystemUtils.h"

namespace installer::LogExport {

namespace {

struct Collected {
  int copied = 0;
  std::vector<std::string> notes;
};

// Bounds the memory for a log. The engine's own logs are much shorter.
constexpr std::size_t kLargestLog = 128UL << 20U;

bool isLog(const std::string& name) {
  return name.ends_with(".log");
}

constexpr std::string_view kStagingPrefix =
    "KeloDeskInstaller-logexport-";  // followed by the process identifier

Path stagingPath() {
  return joined(machine().paths.temporaryDirectory,
                fmt::format("{}{}", kStagingPrefix, machine().systemInfo.processIdentifier()));
}

bool isStagingName(std::string_view name) {
  if (!name.starts_with(kStagingPrefix) || name.size() == kStagingPrefix.size()) return false;
  return name.find_first_not_of("0123456789", kStagingPrefix.size()) == std::string_view::npos;
}

// Creates the folder and returns its lock; null when it can't be locked. Another export can remove the folder
// before it is locked; then it is created again.
Result<std::unique_ptr<FileLock>> makeStaging(const Path& staging) {
  auto& files = machine().files;
  clearInterruptedExports();
  for (int attempt = 0; attempt < 10; ++attempt) {
    // A link under this name would lead the copies, and their removal, to another folder.
    if (files.isSymbolicLink(staging)) static_cast<void>(files.removeItem(staging));
    if (auto made = files.createDirectory(staging, FileSystem::Intermediates::create); !made) {
      return handOn(made);
    }
    auto lock = files.tryLock(staging);
    const bool isBeingCleared = (lock && *lock == nullptr) || !files.directoryExists(staging);
    if (!isBeingCleared && !files.isSymbolicLink(staging)) return lock ? *std::move(lock) : nullptr;
  }
  if (!files.isSymbolicLink(staging)) return nullptr;
  auto made = files.createDirectory(staging, FileSystem::Intermediates::require);
  if (!made) return handOn(made);
  return nullptr;
}

// Ascending by name.
Result<std::vector<std::string>> logNames(const Path& directory) {
  auto names = machine().files.contentsOfDirectory(directory);
  if (!names) return handOn(names);
  std::erase_if(*names, [](const auto& name) { return !isLog(name); });
  std::ranges::sort(*names);
  return names;
}

// Copies the target's bytes for a link: the link itself is broken on another machine.
Result<> copyLog(const Path& source, const Path& copy) {
  if (!machine().files.isSymbolicLink(source)) return machine().files.copyItem(source, copy);
  const auto bytes = readBoundedFile(machine().files, source, kLargestLog);
  if (!bytes) return handOn(bytes);
  return machine().files.writeFile(copy, *bytes);
}

void collectOne(const Path& source, const Path& copy, Collected& collected) {
  if (const auto result = copyLog(source, copy); !result) {
    collected.notes.push_back(
        fmt::format("[skipped] {} — copy failed: {}", source, result.error().localizedDescription));
    return;
  }
  const auto attributes = machine().files.attributes(machine().files.isSymbolicLink(source) ? copy : source);
  const auto size = attributes ? std::to_string(attributes->size) : "?";
  collected.notes.push_back(fmt::format("[included] {} ({} bytes)", source, size));
  ++collected.copied;
}

Collected collectLogs(const Path& directory, const Path& staging) {
  Collected collected;
  const auto names = logNames(directory);
  if (!names) {
    collected.notes.push_back(fmt::format("[skipped] {} — could not read the log directory", directory));
  }
  for (const auto& name : names.value_or(std::vector<std::string>{})) {
    collectOne(joined(directory, name), joined(staging, name), collected);
  }
  if (collected.copied == 0) collected.notes.push_back(fmt::format("[empty] {} — no .log files", directory));
  return collected;
}

void writeManifest(const Path& staging, const Collected& collected) {
  const LogExportTexts::ManifestFacts facts{
      .time = machine().dispatch.now(),
      .systemVersion = machine().systemInfo.operatingSystemVersionString(),
      .isArm64 = SystemUtils::isArm64Architecture(),
      .copied = collected.copied,
  };
  // Failures are ignored: an archive without its manifest is still useful.
  (void)machine().files.writeFile(joined(staging, "manifest.txt"),
                                  LogExportTexts::manifest(facts, collected.notes));
}

// Reads the copies and not the log folder, so that the digest matches the archive.
void writeErrorSummary(const Path& staging) {
  LogExportTexts::Digest digest;
  for (const auto& name : logNames(staging).value_or(std::vector<std::string>{})) {
    digest.add(name,
               readBoundedFile(machine().files, joined(staging, name), kLargestLog).value_or(std::string{}));
  }
  const auto written = machine().files.writeFile(joined(staging, "error-summary.txt"), digest.text());
  if (!written) {
    logWarn("Could not write the log-bundle error summary: " + written.error().localizedDescription);
    return;
  }
  log("Log bundle error summary: {} WARN/ERROR line(s) across {} file(s)", digest.keptLines(),
      digest.files());
}

Path absolute(const Path& path) {
  return path.starts_with('/') ? path : joined(machine().paths.workingDirectory, path);
}

Path destinationFolder(const std::optional<std::string>& outDirectory) {
  if (outDirectory && !outDirectory->empty()) return absolute(*outDirectory);
  const auto& home = machine().paths.home;
  const auto desktop = joined(home, "Desktop");
  return machine().files.directoryExists(desktop) ? desktop : home;
}

Result<Path> compress(const Path& staging, const std::optional<std::string>& outDirectory) {
  const auto destination = destinationFolder(outDirectory);
  if (auto made = machine().files.createDirectory(destination, FileSystem::Intermediates::create); !made) {
    return handOn(made);
  }
  const auto archive = joined(destination, LogExportTexts::archiveName(machine().dispatch.now()));
  const auto ended = machine().processes.run(
      machine().paths.ditto, {"-c", "-k", "--sequesterRsrc", staging, archive}, CapturedOutput::merged);
  if (!ended) return handOn(ended);
  if (ended->status != 0) {
    logToolWords("LogExport: ditto", ended->output);
    return failure(kErrorDomain, ended->status, fmt::format("ditto exited with {}", ended->status));
  }
  return archive;
}

}  // namespace

Result<Path> exportLogs(const std::optional<std::string>& outDirectory) {
  Logger::shared().flush();
  const auto staging = stagingPath();
  const auto lock = makeStaging(staging);
  if (!lock) return handOn(lock);

  const auto collected = collectLogs(Logger::shared().logDirectoryPath(), staging);
  writeManifest(staging, collected);
  writeErrorSummary(staging);
  auto archive = compress(staging, outDirectory);
  if (!archive) return handOn(archive);

  // Failures are ignored: the archive is complete, and the next export or the system removes the copies.
  (void)machine().files.removeItem(staging);
  log("LogExport: wrote {} log file(s) to {}", collected.copied, *archive);
  return archive;
}

void clearInterruptedExports() {
  auto& files = machine().files;
  const auto& folder = machine().paths.temporaryDirectory;
  for (const auto& name : files.contentsOfDirectory(folder).value_or(std::vector<std::string>{})) {
    if (!isStagingName(name)) continue;
    const auto lock = files.tryLock(joined(folder, name));
    if (lock && *lock != nullptr) (void)files.removeItem(joined(folder, name));
  }
}

}  // namespace installer::LogExport
