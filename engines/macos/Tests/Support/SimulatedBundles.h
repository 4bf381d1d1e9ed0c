// Bundles of the simulated file system.
#pragma once

#include <memory>
#include <optional>

#include "Platform/Bundles.h"
#include "Platform/PropertyList.h"
#include "Support/SimulatedFileSystem.h"

namespace installer::test {

class SimulatedBundles : public Bundles {
 public:
  SimulatedBundles(SimulatedFileSystem& files, PropertyList& propertyList, Path resources)
      : files_{files}, propertyList_{propertyList}, resources_{std::move(resources)} {}

  // Absent for an executable without resources.
  void setMainResources(std::optional<Path> resources) { resources_ = std::move(resources); }

  std::shared_ptr<const Bundle> read(const Path& path) override {
    return readBundle(files_, propertyList_, path);
  }
  std::optional<Path> mainResources() override { return resources_; }

 private:
  SimulatedFileSystem& files_;
  PropertyList& propertyList_;
  std::optional<Path> resources_;
};

}  // namespace installer::test
