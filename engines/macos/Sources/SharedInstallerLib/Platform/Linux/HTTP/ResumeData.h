// What a download that broke off hands over to go on from: where its bytes are, where they came from and what
// vouches for the rest. A plain value; opaque bytes above the seam.
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
  std::int64_t received = 0;          // bytes of `partialFile` that count, above zero
  std::optional<std::int64_t> total;  // absent when the server never said

  std::string encode() const;
  // Absent for anything that `encode` can't have given.
  static std::optional<ResumeData> decode(std::string_view bytes);
};

}  // namespace installer
