// The catalog: the built-in rows, narrowed and given other bundle identifiers by the configuration.
// Built once, at first use, and constant from then on. Any thread.
#pragma once

#include <vector>

#include "Models/AppInfo.h"

namespace installer {

class KeloAppProvider final : public AppProvider {
 public:
  // Forces the load of the configuration at its first use.
  static const KeloAppProvider& shared();

  const std::vector<AppInfo>& allApps() const override { return apps_; }
  const AppInfo* app(AppIdentifier identifier) const override;

 private:
  KeloAppProvider();

  std::vector<AppInfo> apps_;
};

}  // namespace installer
