#include <gtest/gtest.h>

#include "Models/AppInfo.h"

namespace installer {
namespace {

TEST(IdentifierList, NamesAppsInTheirOrder) {
  AppInfo rulo;
  rulo.id = AppIdentifier::rulo;
  AppInfo brenna;
  brenna.id = AppIdentifier::brenna;
  EXPECT_EQ(identifierList({}), "");
  EXPECT_EQ(identifierList({rulo}), "rulo");
  EXPECT_EQ(identifierList({rulo, brenna, rulo}), "rulo, brenna, rulo");
}

}  // namespace
}  // namespace installer
