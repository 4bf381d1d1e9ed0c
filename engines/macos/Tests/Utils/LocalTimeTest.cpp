#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <optional>
#include <string>

#include "Utils/LocalTime.h"

namespace installer {
namespace {

// The time zone of the process during a test.
class Zone {
 public:
  explicit Zone(const char* name) {
    if (const char* const before = std::getenv("TZ")) before_ = before;
    setenv("TZ", name, 1);
    tzset();
  }
  Zone(const Zone&) = delete;
  Zone& operator=(const Zone&) = delete;
  ~Zone() {
    if (before_) setenv("TZ", before_->c_str(), 1);
    if (!before_) unsetenv("TZ");
    tzset();
  }

 private:
  std::optional<std::string> before_;
};

TimePoint at(std::int64_t milliseconds) {
  return TimePoint{std::chrono::milliseconds{milliseconds}};
}

TEST(LocalTime, IsWrittenInTheMachinesZone) {
  const Zone zone{"XST-5:30"};
  EXPECT_EQ(LocalTime::timestamp(at(1767225599987)), "2026-01-01 05:29:59.987");
  EXPECT_EQ(LocalTime::dateAndTime(at(1767225599987)), "2026-01-01 05:29:59");
  EXPECT_EQ(LocalTime::fileStamp(at(1767225599987)), "20260101-052959");
}

TEST(LocalTime, CutsMillisecondsAndPadsThem) {
  const Zone zone{"UTC"};
  EXPECT_EQ(LocalTime::timestamp(TimePoint{std::chrono::nanoseconds{7'999'999}}), "1970-01-01 00:00:00.007");
  EXPECT_EQ(LocalTime::timestamp(at(-1)), "1969-12-31 23:59:59.999");
}

}  // namespace
}  // namespace installer
