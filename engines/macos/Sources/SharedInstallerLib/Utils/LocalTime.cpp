#include "Utils/LocalTime.h"

#include <ctime>
#include <fmt/format.h>

namespace installer {

namespace {

std::tm localParts(TimePoint moment) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(moment);
  const std::time_t time = seconds.time_since_epoch().count();
  std::tm parts{};
  localtime_r(&time, &parts);
  return parts;
}

}  // namespace

std::string LocalTime::timestamp(TimePoint moment) {
  const auto sinceSecond = moment - std::chrono::floor<std::chrono::seconds>(moment);
  return fmt::format("{}.{:03}", dateAndTime(moment),
                     std::chrono::floor<std::chrono::milliseconds>(sinceSecond).count());
}

std::string LocalTime::dateAndTime(TimePoint moment) {
  const auto parts = localParts(moment);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", parts.tm_year + 1900, parts.tm_mon + 1,
                     parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
}

std::string LocalTime::fileStamp(TimePoint moment) {
  const auto parts = localParts(moment);
  return fmt::format("{:04}{:02}{:02}-{:02}{:02}{:02}", parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday,
                     parts.tm_hour, parts.tm_min, parts.tm_sec);
}

}  // namespace installer
