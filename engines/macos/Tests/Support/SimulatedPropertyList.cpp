#include "Support/SimulatedPropertyList.h"

#include <nlohmann/json.hpp>

#include "Base/POSIX/PropertyListReader.h"

namespace installer::test {

Result<Json> SimulatedPropertyList::parse(std::string_view bytes) {
  return readPropertyList(bytes);
}

}  // namespace installer::test
