#include "Targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  lab::tryCMS({data, size}, lab::Anchors::platform());
  return 0;
}
