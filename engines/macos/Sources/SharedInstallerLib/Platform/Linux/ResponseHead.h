// The status line and the header fields of one HTTP response. A plain value.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/URL.h"

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

  // Starts afresh at a status line, so that of several heads (a 100 before a 200) the last one stands.
  void addLine(std::string_view line);

  // By lower-case name; of a repeated field the last value. Null when there is none.
  const std::string* field(std::string_view name) const;

  bool isSuccess() const { return status >= 200 && status <= 299; }
  // How long the body is is said twice, and not the same: nobody knows where this answer ends.
  bool contradictsItself() const { return contradictsItself_; }
  // Parts in an envelope of their own, whatever else the head says of a range.
  bool isMultipart() const;

  // Absent when the server doesn't say, or says nonsense.
  std::optional<std::int64_t> contentLength() const;
  std::optional<ContentRange> contentRange() const;
  // Where a 301, 302, 303, 307 or 308 points to, made absolute against `base`. Absent for another status, and
  // for a place that can't be read as a URL.
  std::optional<URL> redirectTarget(const URL& base) const;

 private:
  bool contradictsItself_ = false;
  std::map<std::string, std::string, std::less<>> fields_;
};

}  // namespace installer
