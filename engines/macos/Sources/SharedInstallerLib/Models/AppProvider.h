// A source of catalog rows. Any thread.
#pragma once

#include <vector>

#include "Models/AppIdentifier.h"
#include "Models/AppInfo.h"

namespace installer {

class AppProvider {
 public:
  virtual ~AppProvider() = default;

  // Always the same rows, in catalog order.
  virtual const std::vector<AppInfo>& allApps() const = 0;

  // Null when this build doesn't offer the app. The row belongs to the provider.
  virtual const AppInfo* app(AppIdentifier identifier) const = 0;
};

}  // namespace installer
