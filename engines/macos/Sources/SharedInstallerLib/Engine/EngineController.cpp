#include "Engine/EngineController.h"

#include <utility>

#include "Base/Text.h"
#include "Installer/InstallRun.h"
#include "Models/PackageProvider.h"
#include "Platform/Machine.h"

namespace installer {

std::shared_ptr<EngineController> EngineController::make(std::shared_ptr<PackageProvider> provider) {
  return std::make_shared<EngineController>(Private{}, std::move(provider));
}

EngineController::EngineController(Private, std::shared_ptr<PackageProvider> provider)
    : provider_{std::move(provider)} {
}

EngineController::~EngineController() = default;

void EngineController::cancelAll() {
  machine().dispatch.asyncMain([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (self == nullptr) return;
    self->uninstallCancelled_ = true;
    if (self->activeRun_ != nullptr) self->activeRun_->cancelInstallation();
  });
}

void EngineController::cancelApp(const std::string& app) {
  const auto identifier = AppIdentifiers::fromRawValue(lowercased(app));
  if (!identifier) return;
  machine().dispatch.asyncMain([weak = weak_from_this(), identifier = *identifier] {
    const auto self = weak.lock();
    if (self == nullptr) return;
    // Intended: during an uninstall this stops all later apps, not only the named one.
    self->uninstallCancelled_ = true;
    if (self->activeRun_ != nullptr) self->activeRun_->cancelApp(identifier);
  });
}

}  // namespace installer
