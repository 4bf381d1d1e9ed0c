#include "Support/FaultPlan.h"

#include <utility>

namespace installer::test {

void FaultPlan::record() {
  calls_.clear();
  index_.reset();
  act_ = nullptr;
  isRecording_ = true;
}

void FaultPlan::fail(std::size_t index, std::size_t fault) {
  record();
  index_ = index;
  fault_ = fault;
}

void FaultPlan::interfere(std::size_t index, std::function<void()> act) {
  record();
  index_ = index;
  act_ = std::move(act);
}

void FaultPlan::stop() {
  isRecording_ = false;
}

std::optional<std::size_t> FaultPlan::faultOf(std::string_view service, std::string_view what,
                                              std::vector<std::string> faults) {
  if (!isRecording_ || pauses_ > 0) return std::nullopt;
  calls_.push_back({std::string{service} + " " + std::string{what}, std::move(faults)});
  if (calls_.size() - 1 != index_) return std::nullopt;
  if (!act_) return fault_;
  const Pause pause{*this};
  act_();
  return std::nullopt;
}

bool FaultPlan::answersNo(std::string_view question, std::string_view what) {
  return faultOf(question, what, {"no"}).has_value();
}

}  // namespace installer::test
