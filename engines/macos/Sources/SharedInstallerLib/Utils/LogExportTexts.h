// The two text files of a log bundle, and the bundle's name. They depend only on their arguments and the
// machine's time zone.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Platform/Dispatch.h"

namespace installer::LogExportTexts {

// "KeloDeskInstaller-logs-{yyyyMMdd-HHmmss}.zip", in local time.
std::string archiveName(TimePoint time);

struct ManifestFacts {
  TimePoint time;
  std::string systemVersion;
  bool isArm64 = false;
  int copied = 0;  // log files in the bundle
};
std::string manifest(const ManifestFacts& facts, const std::vector<std::string>& notes);

// Every line of the logs that is tagged as a warning or an error, in file order.
class Digest {
 public:
  // Adds one log file's whole contents. Contents that aren't UTF-8 are skipped: a rotation can cut a file in
  // the middle of a character.
  void add(const std::string& fileName, std::string_view contents);

  std::string text() const;
  int keptLines() const { return keptLines_; }
  int files() const { return files_; }  // all files added, with or without a kept line

 private:
  std::string sections_;
  int keptLines_ = 0;
  int files_ = 0;
};

}  // namespace installer::LogExportTexts
