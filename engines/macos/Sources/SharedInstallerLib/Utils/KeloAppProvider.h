// The catalog: the built-in rows. The configuration can exclude rows and replace bundle identifiers.
// Built once, at first use; constant afterwards. Any thread.
#pragma once

#include <vector>

#include "Models/AppInfo.h"

namespace installer {

class KeloAppProvider final : public AppProvider {
 public:
  // The first call loads the configuration.
  static const KeloAppProvider& shared();

  const std::vector<AppInfo>& allApps() const override { return apps_; }
  const AppInfo* app(AppIdentifier identifier) const override;

 private:
  KeloAppProvider();

  std::vector<AppInfo> apps_;
};

}  // namespace installer
