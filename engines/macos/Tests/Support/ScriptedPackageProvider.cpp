#include "Support/ScriptedPackageProvider.h"

#include <utility>

namespace installer::test {

struct AcquisitionScript::Running {
  SimulatedDispatch& dispatch;
  PackageProvider::ProgressHandler progress;
  PackageProvider::Completion completion;
  std::optional<PackageProvider::Outcome> whenCancelled;
  bool ended = false;

  void end(const PackageProvider::Outcome& outcome) {
    if (!std::exchange(ended, true)) completion(outcome);
  }
};

AcquisitionScript& AcquisitionScript::reports(std::string statusText, std::string detailText,
                                              Progress progress) {
  steps_.emplace_back([=](Running& running) {
    if (!running.ended) running.progress(statusText, detailText, progress);
  });
  return *this;
}

AcquisitionScript& AcquisitionScript::takes(Duration duration) {
  steps_.emplace_back([duration](Running& running) { running.dispatch.sleep(duration); });
  return *this;
}

AcquisitionScript& AcquisitionScript::delivers(AcquiredPackage package) {
  steps_.emplace_back([=](Running& running) { running.end(package); });
  return *this;
}

AcquisitionScript& AcquisitionScript::fails(AcquisitionError error) {
  steps_.emplace_back([=](Running& running) { running.end(std::unexpected(error)); });
  return *this;
}

AcquisitionScript& AcquisitionScript::hangs() {
  steps_.emplace_back([](Running&) {});
  return *this;
}

AcquisitionScript& AcquisitionScript::whenCancelled(PackageProvider::Outcome outcome) {
  whenCancelled_ = std::move(outcome);
  return *this;
}

void ScriptedPackageProvider::acquirePackage(const AppInfo& app, const std::string& label,
                                             ProgressHandler progressHandler, Completion completion) {
  calls_.push_back("acquire " + label);
  auto script = scripts_[app.id];
  if (script.steps_.empty()) script.fails(ProviderError::packageNotFound(app.displayName));
  current_ = std::make_shared<AcquisitionScript::Running>(AcquisitionScript::Running{
      dispatch_, std::move(progressHandler), std::move(completion), std::move(script.whenCancelled_)});
  dispatch_.asyncGlobal(QualityOfService::userInitiated,
                        [running = current_, steps = std::move(script.steps_)] {
                          for (const auto& step : steps) step(*running);
                        });
}

void ScriptedPackageProvider::cancelAcquisition() {
  calls_.emplace_back("cancel");
  if (current_ == nullptr || !current_->whenCancelled) return;
  dispatch_.asyncGlobal(QualityOfService::userInitiated,
                        [running = current_] { running->end(*running->whenCancelled); });
}

}  // namespace installer::test
