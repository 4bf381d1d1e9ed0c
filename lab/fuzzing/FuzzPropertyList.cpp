#include "Targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  lab::tryPropertyList({data, size});
  return 0;
}
