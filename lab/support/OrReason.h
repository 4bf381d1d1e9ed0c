// The result type of the lab's programs: a value, or a failure with one line for a person.
#pragma once

#include <expected>
#include <fmt/format.h>
#include <string>
#include <utility>

#include "Base/Error.h"

namespace lab {

// The reason is one line without a full stop.
template <class T = void>
using OrReason = installer::Expected<T, std::string>;

template <class... Arguments>
std::unexpected<std::string> because(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
  return std::unexpected(fmt::format(format, std::forward<Arguments>(arguments)...));
}

// The failure "{what}: {text of errno}", after a failed system call.
std::unexpected<std::string> becauseOfErrno(const std::string& what);

}  // namespace lab
