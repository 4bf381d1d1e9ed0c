#include "Installer/HeadlessInstallDelegate.h"

#include <fmt/format.h>

#include "Platform/Machine.h"
#include "Utils/Log.h"

namespace installer {

HeadlessInstallDelegate::HeadlessInstallDelegate() : lastActivity_{machine().dispatch.now()} {
}

void HeadlessInstallDelegate::orchestratorDidUpdateProgress(const std::string& statusText,
                                                            const std::string& detailText, double progress) {
  lastActivity_ = machine().dispatch.now();
  auto line = fmt::format("SilentRunner [install {:.0f}%] {}", progress, statusText);
  if (!detailText.empty()) line += " | " + detailText;
  log(line);
}

void HeadlessInstallDelegate::orchestratorDidFinish(const std::vector<AppInstallResult>& results) {
  results_ = results;
  isFinished_ = true;
}

}  // namespace installer
