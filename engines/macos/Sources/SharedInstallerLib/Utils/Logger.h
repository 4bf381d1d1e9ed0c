// The log file: one per user; a rotation removes its older half. Any thread may log; the call returns at
// once, and the logger's serial queue writes. A failure of the log is printed on standard output and never
// stops the engine.
//
// Several processes write to one log. Entries and rotations take a lock on the log folder, so that no entry
// goes to a file that another process is replacing. A process that can't take the lock writes without it,
// and doesn't rotate the log while another one holds the lock.
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
  // The logger of this process. The first use creates it, its directory and its file.
  static Logger& shared();

  // Writes one line: "[{timestamp}] [WARN] [{file}:{line} {function}] {message}", without a tag for `info`.
  // The timestamp is the time of writing. `file` is cut to its last path component; `function` is written as
  // given. Bytes of `message` that aren't UTF-8 are written as U+FFFD.
  void log(std::string_view message, LogLevel level, std::string_view file, unsigned line,
           std::string_view function);

  // Waits for at most 2 seconds until all earlier entries are written. Call this before each exit.
  void flush();

  // Also writes each line, without its source location, to standard error. Set this before the work starts.
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
  bool isLockHeldByAnother_ = false;  // after a timeout, until the lock can be taken again

  Path temporaryPath() const;
  void setupLogFile();
  void createLogFile();
  void openLogFile();
  void logHere(std::string_view message, std::source_location location = std::source_location::current());

  // On `logQueue_` only.
  void write(const std::string& message, LogLevel level, const std::string& where);
  std::unique_ptr<FileLock> lockLog();  // null when the lock can't be taken
  void reopenIfReplaced(bool isLocked);
  std::optional<std::int64_t> logFileSize() const;
  void rotateLogFileIfNeeded();
  void reportRotation(std::int64_t sizeBefore,
                      std::source_location location = std::source_location::current());
  [[nodiscard]] Result<> replaceByNewerHalf(const Path& temporary, std::string_view content);
};

}  // namespace installer
