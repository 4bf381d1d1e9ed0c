#include "publisher/Configuration.h"

#include "nlohmann/json.hpp"

#include "Models/Deployment.h"
#include "Utils/URLTrust.h"
#include "fixtures/Catalog.h"
#include "support/Files.h"

namespace lab {

namespace {

using Json = nlohmann::json;

// Replaces `value` by the value at the place, if there is one.
template <class Value>
void take(const Json& file, const std::string& place, Value& value) {
  const Json::json_pointer pointer{place};
  if (file.contains(pointer)) file.at(pointer).get_to(value);
}

}  // namespace

Configuration::Configuration()
    : trustedDomains(installer::Deployment::trustedDownloadDomains.begin(),
                     installer::Deployment::trustedDownloadDomains.end()) {
  for (const CatalogApp& app : catalog) bundleIdentifiers.emplace(app.id, app.identifier);
}

OrReason<Configuration> Configuration::read(const fs::path& file) {
  const auto text = readFile(file);
  if (!text) return handOn(text);
  Configuration read;
  try {
    const Json json = Json::parse(*text);
    take(json, "/cdn/distributionRoot", read.names.distributionRoot);
    take(json, "/cdn/appsRoot", read.names.appsRoot);
    take(json, "/cdn/release", read.names.release);
    take(json, "/flavour", read.names.flavour);
    take(json, "/trustedDownloadDomains", read.trustedDomains);
    read.offeredApps.emplace();
    for (auto& [app, identifier] : read.bundleIdentifiers) {
      take(json, "/apps/" + app + "/primaryBundleIdentifier", identifier);
      bool isIncluded = true;
      take(json, "/apps/" + app + "/included", isIncluded);
      if (isIncluded) read.offeredApps->insert(app);
    }
  } catch (const Json::exception& failure) {
    return because("{}: {}", file.string(), failure.what());
  }
  return read;
}

OrReason<> checkAlternate(const installer::URL& url, const Configuration& configuration) {
  if (installer::URLTrust::isTrusted(url, configuration.trustedDomains)) return {};
  return because("the alternate location '{}' is not https on a host of trustedDownloadDomains",
                 url.absoluteString());
}

}  // namespace lab
