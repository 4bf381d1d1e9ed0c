// The head of one HTTP response, parsed by libcurl. A plain value.
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
  URL url;                                   // of the request
  std::optional<std::int64_t> bodyLength{};  // after decoding; absent when unknown

  void addField(std::string_view name, std::string_view value);

  // By lower-case name; the last value of a repeated field. Null when there is none.
  const std::string* field(std::string_view name) const;

  bool isSuccess() const { return status >= 200 && status <= 299; }
  // The head has two different lengths, so the end of the body is unknown.
  bool contradictsItself() const { return contradictsItself_; }
  // The head names a transfer coding other than "chunked". No request asks for one.
  bool hasForeignTransferCoding() const { return hasForeignTransferCoding_; }
  // The body is a multipart envelope, even if the head also names a range.
  bool isMultipart() const;
  // The body has a coding that libcurl decodes: its length isn't the announced one, and its bytes aren't
  // those of a range. Bodies in other codings are passed on unchanged.
  bool isEncoded() const;

  std::optional<ContentRange> contentRange() const;
  // The absolute target of a 301, 302, 303, 307 or 308; `URL{}` for a target that isn't a strict URL. Absent
  // for another status, and without a target.
  std::optional<URL> redirectTarget() const;

 private:
  bool contradictsItself_ = false;
  bool hasForeignTransferCoding_ = false;
  std::map<std::string, std::string, std::less<>> fields_;
};

}  // namespace installer
