// How the signature code says no: a value or one line that a person can act on.
#pragma once

#include <expected>
#include <fmt/format.h>
#include <string>
#include <utility>

#include "Base/Error.h"

namespace lab {

enum class FailureKind {
  notSigned,  // the code carries no signature at all
  invalid,    // there is a signature, or a structure, and it doesn't hold
  unreadable  // the file system wouldn't let it be read
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

// The failure of `outcome`, ready to be returned by a function with another value type.
template <class T>
std::unexpected<Failure> handOn(const Outcome<T>& outcome) {
  return std::unexpected(outcome.error());
}

// The same, with where it happened put before the reason.
template <class T>
std::unexpected<Failure> handOn(const Outcome<T>& outcome, const std::string& where) {
  return std::unexpected(Failure{where + ": " + outcome.error().reason, outcome.error().kind});
}

}  // namespace lab
