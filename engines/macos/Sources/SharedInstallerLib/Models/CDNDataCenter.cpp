#include "Models/CDNDataCenter.h"

namespace installer {

std::string_view rawValue(CDNDataCenter dataCenter) {
  switch (dataCenter) {
    case CDNDataCenter::us: return "us";
    case CDNDataCenter::cn: return "cn";
    case CDNDataCenter::local: return "local";
  }
  return {};
}

std::optional<CDNDataCenter> CDNDataCenters::fromRawValue(std::string_view text) {
  for (const auto each : {CDNDataCenter::us, CDNDataCenter::cn, CDNDataCenter::local}) {
    if (rawValue(each) == text) return each;
  }
  return std::nullopt;
}

}  // namespace installer
