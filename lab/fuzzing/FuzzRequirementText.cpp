#include "Targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  lab::tryRequirementText({data, size});
  return 0;
}
