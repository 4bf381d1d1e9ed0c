// What the head of one HTTP response says. A plain value; libcurl has read it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "Base/URL.h"

namespace installer {

// "bytes first-last/total"; `total` is absent for "*".
struct ContentRange {
  std::int64_t first = 0;
  std::int64_t last = 0;
  std::optional<std::int64_t> total;

  friend bool operator==(const ContentRange&, const ContentRange&) = default;
};

class ResponseHead {
 public:
  int status = 0;
  URL url;                                   // that was asked
  std::optional<std::int64_t> bodyLength{};  // as it is handed on; absent when the server doesn't say

  void addField(std::string_view name, std::string_view value);

  // By lower-case name; of a repeated field the last value. Null when there is none.
  const std::string* field(std::string_view name) const;

  bool isSuccess() const { return status >= 200 && status <= 299; }
  // Two different lengths: where this answer ends can't be known.
  bool contradictsItself() const { return contradictsItself_; }
  // Parts in an envelope of their own, whatever else the head says of a range.
  bool isMultipart() const;
  // The body is stored in a coding that is decoded on its way: its length isn't the announced one, and its
  // bytes aren't those of a range. Bodies in other codings are handed on as they come.
  bool isEncoded() const;

  std::optional<ContentRange> contentRange() const;
  // Where a 301, 302, 303, 307 or 308 points to, made absolute; `URL{}` for a place that isn't a strict URL.
  // Absent for another status, and without a place.
  std::optional<URL> redirectTarget() const;

 private:
  bool contradictsItself_ = false;
  std::map<std::string, std::string, std::less<>> fields_;
};

}  // namespace installer
