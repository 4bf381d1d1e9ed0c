// A package source that does what a test scripted for each app, in virtual time, on worker threads.
//
// The end of an acquisition comes at most once: a cancelled one that has an answer to the cancel gives that
// one, any other goes on as if nothing had been asked. An app without a script isn't found.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Models/PackageProvider.h"
#include "Support/SimulatedDispatch.h"

namespace installer::test {

// What one acquisition does, step by step.
class AcquisitionScript {
 public:
  AcquisitionScript& reports(std::string statusText, std::string detailText = {}, Progress progress = {});
  AcquisitionScript& takes(Duration duration);
  AcquisitionScript& delivers(AcquiredPackage package);
  AcquisitionScript& fails(AcquisitionError error);
  AcquisitionScript& hangs();  // never ends by itself
  AcquisitionScript& whenCancelled(PackageProvider::Outcome outcome);

 private:
  friend class ScriptedPackageProvider;
  struct Running;
  using Step = std::function<void(Running&)>;
  std::vector<Step> steps_;
  std::optional<PackageProvider::Outcome> whenCancelled_;
};

class ScriptedPackageProvider : public PackageProvider {
 public:
  enum class Mode { online, offline };
  explicit ScriptedPackageProvider(SimulatedDispatch& dispatch, Mode mode = Mode::online)
      : dispatch_{dispatch}, mode_{mode} {}

  AcquisitionScript& on(AppIdentifier app) { return scripts_[app]; }

  // What was asked for, in order, such as "acquire Kelo Brenna (1/2)" and "cancel".
  const std::vector<std::string>& calls() const { return calls_; }

  void acquirePackage(const AppInfo& app, const std::string& label, ProgressHandler progressHandler,
                      Completion completion) override;
  void cancelAcquisition() override;
  bool isOfflineMode() const override { return mode_ == Mode::offline; }

 private:
  SimulatedDispatch& dispatch_;
  Mode mode_;
  std::map<AppIdentifier, AcquisitionScript> scripts_;
  std::vector<std::string> calls_;
  std::shared_ptr<AcquisitionScript::Running> current_;
};

}  // namespace installer::test
