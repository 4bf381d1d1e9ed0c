#include "support/OrReason.h"

#include <cerrno>
#include <system_error>

namespace lab {

std::unexpected<std::string> becauseOfErrno(const std::string& what) {
  return std::unexpected(fmt::format("{}: {}", what, std::generic_category().message(errno)));
}

}  // namespace lab
