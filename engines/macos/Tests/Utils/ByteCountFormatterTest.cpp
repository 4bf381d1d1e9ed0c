#include <cstdint>
#include <gtest/gtest.h>

#include "Utils/ByteCountFormatter.h"

namespace installer {
namespace {

TEST(ByteCountFormatter, WordsSizesAsThePlatformDoes) {
  const struct {
    std::int64_t bytes;
    const char* file;
    const char* binary;
  } rows[] = {
      {0, "Zero KB", "Zero KB"},
      {1, "1 byte", "1 byte"},
      {2, "2 bytes", "2 bytes"},
      {999, "999 bytes", "999 bytes"},
      {1000, "1 KB", "1,000 bytes"},
      {1023, "1 KB", "1,023 bytes"},
      {1024, "1 KB", "1 KB"},
      {512001, "512 KB", "500 KB"},
      {512000, "512 KB", "500 KB"},
      {999499, "999 KB", "976 KB"},
      {999999, "1 MB", "977 KB"},
      {1047000, "1 MB", "1,022 KB"},
      {1048576, "1 MB", "1 MB"},
      {1258291, "1.3 MB", "1.2 MB"},
      {279172874, "279.2 MB", "266.2 MB"},
      {999999999, "1 GB", "953.7 MB"},
      {1250000000, "1.25 GB", "1.16 GB"},
      {1200000000, "1.2 GB", "1.12 GB"},
      {2000000000000, "2 TB", "1.82 TB"},
      {INT64_MAX, "9.22 EB", "8 EB"},
      {-1, "-1 byte", "-1 byte"},
      {-2048, "-2 KB", "-2 KB"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ByteCountFormatter::string(row.bytes, ByteCountFormatter::CountStyle::file), row.file);
    EXPECT_EQ(ByteCountFormatter::string(row.bytes, ByteCountFormatter::CountStyle::binary), row.binary);
  }
}

}  // namespace
}  // namespace installer
