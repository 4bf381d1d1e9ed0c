#include "Support/SimulatedPropertyList.h"

#include <nlohmann/json.hpp>

#include "Base/POSIX/PropertyListReader.h"

namespace installer::test {

Result<Json> SimulatedPropertyList::parse(std::string_view bytes) {
  if (plan_.answersNo("parse", "a property list")) {
    return failure(ErrorDomain::cocoa, CocoaError::fileReadCorrupt, "The data isn’t in the correct format.");
  }
  return readPropertyList(bytes);
}

}  // namespace installer::test
