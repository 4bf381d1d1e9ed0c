#include "StdinCommandListener.h"

#include <nlohmann/json.hpp>

#include "Base/JSONReader.h"
#include "Engine/EngineController.h"
#include "Platform/Machine.h"
#include "Utils/Log.h"

namespace installer {

void startStdinCommandListener(const std::shared_ptr<EngineController>& controller) {
  machine().dispatch.detachThread([controller] {
    while (const auto line = machine().streams.readLine()) obeyStdinLine(*line, *controller);
  });
}

void obeyStdinLine(std::string_view line, EngineController& controller) {
  // A text with a bad value is refused: a bad "app" must not count as a missing one, which cancels the whole
  // run.
  const auto command = JSONReader::parse(line, JSONReader::BadValues::refuse);
  // Absent unless the line is an object with a string "type".
  const auto type = command ? JSONReader::string(*command, "type") : std::nullopt;
  if (!type) {
    log("engine-cli: ignoring malformed stdin line");
    return;
  }
  if (*type != "cancel") {
    log("engine-cli: ignoring unknown stdin command '{}'", *type);
    return;
  }
  if (const auto app = JSONReader::string(*command, "app"); app && !app->empty()) {
    log("engine-cli: stdin cancel for app '{}'", *app);
    controller.cancelApp(*app);
    return;
  }
  log("engine-cli: stdin cancel (whole run)");
  controller.cancelAll();
}

}  // namespace installer
