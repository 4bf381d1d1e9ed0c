#include "Utils/RunExitCode.h"

#include <algorithm>

namespace installer::RunExitCode {

namespace {

bool isSuccess(std::string_view status) {
  return std::ranges::find(successStatuses, status) != successStatuses.end();
}

}  // namespace

ExitCode forRun(std::span<const std::string> statuses, bool strict, bool permissionDenied) {
  const bool anyFailed = std::ranges::count(statuses, rawValue(AppStatus::failed)) > 0;
  const bool anyCancelled = std::ranges::count(statuses, rawValue(AppStatus::cancelled)) > 0;
  const bool anySucceeded = std::ranges::any_of(statuses, isSuccess);
  const auto failureCode = permissionDenied ? ExitCode::permissionDenied : ExitCode::fullFailure;

  if (strict && anyFailed) return failureCode;
  if (!anyFailed && !anyCancelled) return ExitCode::success;
  if (!anySucceeded && anyFailed) return failureCode;
  return ExitCode::partialSuccess;
}

}  // namespace installer::RunExitCode
