// The result type of the signature code: a value, or a failure with one line for a person.
#pragma once

#include <expected>
#include <fmt/format.h>
#include <string>
#include <utility>

#include "Base/Error.h"

namespace lab {

enum class FailureKind {
  notSigned,  // the code has no signature
  invalid,    // the signature or a structure is invalid
  unreadable  // the file system refused the read
};

struct Failure {
  std::string reason;  // one line, no trailing full stop
  FailureKind kind = FailureKind::invalid;
};

template <class T>
using Outcome = installer::Expected<T, Failure>;

// An invalid outcome with a formatted reason.
template <class... Arguments>
std::unexpected<Failure> refuse(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
  return std::unexpected(Failure{fmt::format(format, std::forward<Arguments>(arguments)...)});
}

// The failure of `outcome`, with the place before the reason.
template <class T>
std::unexpected<Failure> handOn(const Outcome<T>& outcome, const std::string& where) {
  return std::unexpected(Failure{where + ": " + outcome.error().reason, outcome.error().kind});
}

}  // namespace lab
