// How the lab's programs say no: a value, or one line that a person can act on.
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

// "{what}: {text of errno}", for a system call that has just failed.
std::unexpected<std::string> becauseOfErrno(const std::string& what);

}  // namespace lab
