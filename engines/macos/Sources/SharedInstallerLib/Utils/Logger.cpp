#include "Utils/Logger.h"

#include <fmt/format.h>
#include <utility>

#include "Base/ProcessWide.h"
#include "Base/Text.h"
#include "Models/AppConstants.h"
#include "Platform/Machine.h"
#include "Utils/ByteCountFormatter.h"
#include "Utils/LocalTime.h"
#include "Utils/SystemUtils.h"

namespace installer {

namespace {

constexpr Duration kFlushLimit{2.0};
// Other processes hold the lock for one entry or one rotation. A stopped process holds it longer.
constexpr Duration kLockInterval{0.001};
constexpr int kLockAttempts = 1000;
constexpr auto kMaximumSize = static_cast<std::int64_t>(AppConstants::Logging::maxLogFileSizeBytes);

// Prints to standard output: the log itself failed.
void print(const std::string& line) {
  machine().streams.writeOutput(line + "\n");
}

std::string whereText(std::string_view file, unsigned line, std::string_view function) {
  return fmt::format("{}:{} {}", lastPathComponent(file), line, function);
}

std::string_view levelTag(LogLevel level) {
  switch (level) {
    case LogLevel::info: return "";
    case LogLevel::warn: return "[WARN] ";
    case LogLevel::error: return "[ERROR] ";
  }
  return {};
}

}  // namespace

Logger& Logger::shared() {
  static ProcessWide<std::shared_ptr<Logger>> instance{
      [] { return std::make_unique<std::shared_ptr<Logger>>(make()); }};
  return *instance.get();
}

std::shared_ptr<Logger> Logger::make() {
  const std::shared_ptr<Logger> logger{new Logger};
  logger->setupLogFile();
  return logger;
}

Logger::Logger()
    : logQueue_{machine().dispatch.makeSerialQueue("com.kelo.logger", QualityOfService::utility)},
      logDirectory_{
          joined(joined(machine().paths.home, "Library/Logs"), AppConstants::Brand::appNameWithoutExtension)},
      currentLogFilePath_{joined(logDirectory_, AppConstants::Logging::baseLogFileName)} {
}

Path Logger::temporaryPath() const {
  return joined(logDirectory_, fmt::format("temp_{}", AppConstants::Logging::baseLogFileName));
}

void Logger::setupLogFile() {
  auto& files = machine().files;
  if (!files.directoryExists(logDirectory_)) {
    const auto created = files.createDirectory(logDirectory_, FileSystem::Intermediates::create);
    if (!created) {
      print("Error creating log directory: " + created.error().localizedDescription);
      return;
    }
    print("Created log directory: " + logDirectory_);
  }
  {
    const auto lock = lockLog();
    if (!files.fileExists(currentLogFilePath_)) createLogFile();
    openLogFile();
  }

  logHere("Logging initialized for Kelo WebInstaller");
  logHere("System: " + machine().systemInfo.operatingSystemVersionString());
  logHere(SystemUtils::isArm64Architecture() ? "Architecture: ARM64" : "Architecture: x86_64");
}

std::unique_ptr<FileLock> Logger::lockLog() {
  for (int attempt = 1;; ++attempt) {
    auto lock = machine().files.tryLock(logDirectory_);
    if (!lock) {
      isLockHeldByAnother_ = false;
      return nullptr;
    }
    if (*lock != nullptr || isLockHeldByAnother_ || attempt > kLockAttempts) {
      isLockHeldByAnother_ = *lock == nullptr;
      return *std::move(lock);
    }
    machine().dispatch.sleep(kLockInterval);
  }
}

void Logger::createLogFile() {
  // A process killed during a rotation leaves the newer half in the temporary file.
  auto& files = machine().files;
  if (files.itemExists(temporaryPath()) && files.moveItem(temporaryPath(), currentLogFilePath_)) return;
  // The file is created under another name and moved, which replaces nothing: another process may have
  // created the log meanwhile, and its entries must not be lost. All processes use the same name, so that the
  // next one uses the leftover of a killed one.
  const auto beside = currentLogFilePath_ + ".new";
  const auto made = files.writeFile(beside, {});
  if (made && files.moveItem(beside, currentLogFilePath_)) return;
  // Failures are ignored: `openLogFile` reports a missing file.
  if (made) static_cast<void>(files.removeItem(beside));
}

void Logger::openLogFile() {
  logFileHandle_.reset();
  auto opened = machine().files.openForAppending(currentLogFilePath_);
  if (!opened) {
    print("Error opening log file: " + opened.error().localizedDescription);
    return;
  }
  logFileHandle_ = *std::move(opened);
}

void Logger::logHere(std::string_view message, std::source_location location) {
  log(message, LogLevel::info, location.file_name(), location.line(),
      qualifiedFunctionName(location.function_name()));
}

void Logger::log(std::string_view message, LogLevel level, std::string_view file, unsigned line,
                 std::string_view function) {
  // The message is repaired because one byte that isn't UTF-8, for example from a file name, would exclude
  // the whole file from the digest.
  logQueue_->async([self = weak_from_this(), message = repairedUTF8(message), level,
                    where = whereText(file, line, function)] {
    const auto logger = self.lock();
    if (!logger) return;
    const auto lock = logger->lockLog();
    logger->reopenIfReplaced(lock != nullptr);
    // Two rotations at once would lose the log.
    if (!logger->isLockHeldByAnother_) logger->rotateLogFileIfNeeded();
    logger->write(message, level, where);
  });
}

void Logger::write(const std::string& message, LogLevel level, const std::string& where) {
  const auto timestamp = LocalTime::timestamp(machine().dispatch.now());
  if (echoToStandardError_) {
    machine().streams.writeError(fmt::format("[{}] {}{}\n", timestamp, levelTag(level), message));
  }
  if (!logFileHandle_) return;
  const auto written =
      logFileHandle_->write(fmt::format("[{}] {}[{}] {}\n", timestamp, levelTag(level), where, message));
  if (written) return;
  print("Error writing to log file: " + written.error().localizedDescription);
  openLogFile();
}

// Reopens a log that was replaced; a deleted log stays open, unless a killed rotation deleted it. A link is
// always reopened, because its target can change without the link.
void Logger::reopenIfReplaced(bool isLocked) {
  const auto named = machine().files.attributes(currentLogFilePath_);
  if (!named && isLocked && machine().files.itemExists(temporaryPath())) {
    createLogFile();
    openLogFile();
  }
  if (!named || logFileHandle_ == nullptr) return;
  const auto open = logFileHandle_->attributes();
  if (named->isSymbolicLink || !open || open->identity != named->identity) openLogFile();
}

// Absent when the log was deleted.
std::optional<std::int64_t> Logger::logFileSize() const {
  const auto named = machine().files.attributes(currentLogFilePath_);
  if (!named) return std::nullopt;
  if (!named->isSymbolicLink || logFileHandle_ == nullptr) return named->size;
  const auto open = logFileHandle_->attributes();
  return open ? open->size : named->size;
}

// A link is replaced by a file with the newer half of its target.
void Logger::rotateLogFileIfNeeded() {
  auto& files = machine().files;
  const auto size = logFileSize();
  if (!size || *size <= kMaximumSize) return;

  logFileHandle_.reset();
  const auto temporary = temporaryPath();
  // Failures are ignored: `replaceByNewerHalf` reports them.
  static_cast<void>(files.writeFile(temporary, {}));
  if (const auto content = files.readFile(currentLogFilePath_)) {
    if (const auto replaced = replaceByNewerHalf(temporary, *content); !replaced) {
      print("Error rotating log file: " + replaced.error().localizedDescription);
      // Empties the log. If this fails too, `openLogFile` reports it.
      static_cast<void>(files.writeFile(currentLogFilePath_, {}));
    }
  }
  openLogFile();
  reportRotation(*size);
}

void Logger::reportRotation(std::int64_t sizeBefore, std::source_location location) {
  // This entry doesn't rotate the log: a log that can't be cut would otherwise be reported without end.
  logQueue_->async([self = weak_from_this(), sizeBefore, location] {
    const auto logger = self.lock();
    if (!logger) return;
    const auto lock = logger->lockLog();
    logger->reopenIfReplaced(lock != nullptr);
    const auto size = ByteCountFormatter::string(sizeBefore, ByteCountFormatter::CountStyle::file);
    logger->write(
        fmt::format("Log file rotated due to size threshold ({})", size), LogLevel::info,
        whereText(location.file_name(), location.line(), qualifiedFunctionName(location.function_name())));
  });
}

Result<> Logger::replaceByNewerHalf(const Path& temporary, std::string_view content) {
  constexpr std::size_t kept = kMaximumSize / 2;
  if (content.size() > kept) content.remove_prefix(content.size() - kept);

  auto& files = machine().files;
  if (auto written = files.writeFile(temporary, content); !written) return written;
  if (auto removed = files.removeItem(currentLogFilePath_); !removed) return removed;
  return files.moveItem(temporary, currentLogFilePath_);
}

void Logger::flush() {
  const auto written = machine().dispatch.makeSemaphore(0);
  // Twice, because an entry that rotates the log enqueues another one.
  logQueue_->async([queue = logQueue_, written] { queue->async([written] { written->signal(); }); });
  // A timeout is ignored: the process exits in either case.
  static_cast<void>(written->waitFor(kFlushLimit));
}

}  // namespace installer
