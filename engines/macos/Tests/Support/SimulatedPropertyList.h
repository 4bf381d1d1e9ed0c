// Property lists, XML and binary.
#pragma once

#include "Platform/PropertyList.h"
#include "Support/FaultPlan.h"

namespace installer::test {

class SimulatedPropertyList : public PropertyList {
 public:
  explicit SimulatedPropertyList(FaultPlan& plan) : plan_{plan} {}

  Result<Json> parse(std::string_view bytes) override;

 private:
  FaultPlan& plan_;
};

}  // namespace installer::test
