#include "Utils/RunExitCode.h"

#include <algorithm>

#include "Models/AppConstants.h"

namespace installer::RunExitCode {

namespace {

bool isSuccess(std::string_view status) {
  return std::ranges::find(successStatuses, status) != successStatuses.end();
}

}  // namespace

std::int32_t forRun(std::span<const std::string> statuses, bool strict, bool permissionDenied) {
  const bool anyFailed = std::ranges::count(statuses, AppStatus::failed) > 0;
  const bool anyCancelled = std::ranges::count(statuses, AppStatus::cancelled) > 0;
  const bool anySucceeded = std::ranges::any_of(statuses, isSuccess);
  const auto failureCode =
      permissionDenied ? AppConstants::ExitCode::permissionDenied : AppConstants::ExitCode::fullFailure;

  if (strict && anyFailed) return failureCode;
  if (!anyFailed && !anyCancelled) return AppConstants::ExitCode::success;
  if (!anySucceeded && anyFailed) return failureCode;
  return AppConstants::ExitCode::partialSuccess;
}

}  // namespace installer::RunExitCode
