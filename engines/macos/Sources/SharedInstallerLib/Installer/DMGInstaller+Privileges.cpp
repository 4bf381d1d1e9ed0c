#include "Installer/DMGInstaller.h"
#include "Installer/PrivilegedRunner.h"
#include "Platform/Machine.h"

namespace installer {

AdminOutcome DMGInstaller::runWithAdminPrivilegesOutcome(const std::string& command) {
  auto outcome = AdminOutcome::failed;
  const auto work = [&outcome, &command] { outcome = PrivilegedRunner::shared().run(command); };
  Dispatch& dispatch = machine().dispatch;
  if (dispatch.isMainThread()) {
    work();
  } else {
    dispatch.syncMain(work);
  }
  return outcome;
}

}  // namespace installer
