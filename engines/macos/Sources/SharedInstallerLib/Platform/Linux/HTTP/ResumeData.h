// The state of an interrupted download: its partial file, its URL and its validator. A plain value; opaque
// bytes above the seam.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Base/Path.h"
#include "Base/URL.h"
#include "Platform/Linux/HTTP/Validator.h"

namespace installer {

struct ResumeData {
  URL url;
  Path partialFile;
  Validator validator;
  std::int64_t received = 0;          // valid bytes of `partialFile`, above zero
  std::optional<std::int64_t> total;  // absent when the server didn't send it

  std::string encode() const;
  // Absent for anything that isn't a result of `encode`.
  static std::optional<ResumeData> decode(std::string_view bytes);
};

}  // namespace installer
