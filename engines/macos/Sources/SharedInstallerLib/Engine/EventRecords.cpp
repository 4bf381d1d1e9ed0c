#include "Engine/EventRecords.h"

namespace installer::EventRecords {

Object encode(const CatalogAppEvent& app) {
  Object object{{"id", app.id},
                {"displayName", app.displayName},
                {"descriptionCode", app.descriptionCode},
                {"iconName", app.iconName},
                {"updateAvailable", app.updateAvailable}};
  putOrNull(object, "installedVersion", app.installedVersion);
  putOrNull(object, "latestVersion", app.latestVersion);
  putOrNull(object, "sizeBytes", app.sizeBytes);
  putOrNull(object, "source", app.source);
  putOrNull(object, "webUrl", app.webUrl);
  putIfPresent(object, "requiredBytes", app.requiredBytes);
  putIfPresent(object, "installedPath", app.installedPath);
  putIfPresent(object, "releaseNotes", app.releaseNotes);
  return object;
}

Object encode(const EngineEvent::UpdateCheckEntry& entry) {
  Object object{{"id", entry.id}, {"updateAvailable", entry.updateAvailable}};
  putIfPresent(object, "latestVersion", entry.latestVersion);
  putIfPresent(object, "sizeBytes", entry.sizeBytes);
  putIfPresent(object, "requiredBytes", entry.requiredBytes);
  putIfPresent(object, "releaseNotes", entry.releaseNotes);
  return object;
}

Object encode(const AppResultEvent& result) {
  Object object{{"v", result.v}, {"type", result.type}, {"app", result.app}, {"status", result.status}};
  putIfPresent(object, "errorCode", result.errorCode);
  putIfPresent(object, "installedPath", result.installedPath);
  putIfPresent(object, "installedVersion", result.installedVersion);
  return object;
}

Object encode(const InstallerRetirementEvent& retirement) {
  Object object{{"reason", retirement.reason}, {"downloadUrl", retirement.downloadUrl}};
  putIfPresent(object, "expiresOn", retirement.expiresOn);
  return object;
}

Object encode(const ReleaseNotes& notes) {
  return notes.encode();
}

}  // namespace installer::EventRecords
