// A package source with a script per app, in virtual time, on worker threads.
//
// An acquisition ends at most once. A cancelled one ends with the script's answer to a cancel; without such
// an answer it continues. An app without a script isn't found.
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

// The steps of one acquisition.
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

  // The calls in order, for example "acquire Kelo Brenna (1/2)" and "cancel".
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
