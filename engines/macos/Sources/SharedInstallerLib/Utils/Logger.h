// The log file: one per user, kept small by cutting away its older half. Any thread may log and returns at
// once; a serial queue of the logger's own does all the writing. A failure of the log is printed on standard
// output and never stops the engine.
//
// Several processes write to one log. Each entry is written, and the file is cut, under a lock of the log
// folder, so that no entry goes to a file that another process is replacing. A process that can't take the
// lock writes without it.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>

#include "Base/Error.h"
#include "Base/Path.h"
#include "Platform/Dispatch.h"
#include "Platform/FileSystem.h"
#include "Utils/Log.h"

namespace installer {

class Logger : public std::enable_shared_from_this<Logger> {
 public:
  // The process's one. Made, with its directory and file, at first use.
  static Logger& shared();

  // One line: "[{timestamp}] [WARN] [{file}:{line} {function}] {message}", without a tag for `info`. The time
  // is that of writing. Of `file` the last path component counts; `function` stands as it is given. What of
  // `message` isn't UTF-8 is written as U+FFFD.
  void log(std::string_view message, LogLevel level, std::string_view file, unsigned line,
           std::string_view function);

  // Waits, for at most 2 seconds, until all that was logged so far is written. Before each exit.
  void flush();

  // The same lines without their source location on standard error. Set before the work starts.
  void setEchoToStandardError(bool echo) { echoToStandardError_ = echo; }

  const Path& logDirectoryPath() const { return logDirectory_; }
  const Path& currentLogFilePath() const { return currentLogFilePath_; }

 private:
  Logger();
  static std::shared_ptr<Logger> make();

  std::shared_ptr<SerialQueue> logQueue_;
  std::unique_ptr<FileAppender> logFileHandle_;  // null when the file couldn't be opened
  std::atomic<bool> echoToStandardError_{false};
  Path logDirectory_;
  Path currentLogFilePath_;
  bool isLockWaitedFor_ = true;  // not again after a wait in vain, until the lock could be taken

  Path temporaryPath() const;
  void setupLogFile();
  void createLogFile();
  void openLogFile();
  void logHere(std::string_view message, std::source_location location = std::source_location::current());

  // On `logQueue_` only.
  void write(const std::string& message, LogLevel level, const std::string& where);
  std::unique_ptr<FileLock> lockLog();  // null when that can't be done
  void reopenIfReplaced();
  std::optional<std::int64_t> logFileSize() const;
  void rotateLogFileIfNeeded();
  void reportRotation(std::int64_t sizeBefore,
                      std::source_location location = std::source_location::current());
  [[nodiscard]] Result<> replaceByNewerHalf(const Path& temporary, std::string_view content);
};

// "installer::DMGInstaller::detach" from what the compiler calls a function: no return type, no arguments.
// A lambda is named after the function that it stands in.
std::string_view qualifiedFunctionName(std::string_view compilerName);

}  // namespace installer
