// Bundles by their Info.plist.
#pragma once

#include "Platform/Bundles.h"

namespace installer {

class PropertyList;

class LinuxBundles : public Bundles {
 public:
  // `propertyList` outlives this.
  LinuxBundles(PropertyList& propertyList, std::optional<Path> resources)
      : propertyList_{propertyList}, resources_{std::move(resources)} {}

  std::shared_ptr<const Bundle> read(const Path& path) override;
  std::optional<Path> mainResources() override { return resources_; }

 private:
  PropertyList& propertyList_;
  std::optional<Path> resources_;
};

// The resources of the executable at `executable`: "Contents/Resources" of the bundle in whose
// "Contents/MacOS" it lies, else its own folder.
Path resourcesOfExecutable(const Path& executable);

}  // namespace installer
