#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Installer/PrivilegedRunner.h"
#include "Support/SimulatedMachine.h"

namespace installer::test {
namespace {

TEST(AdminOutcome, IsReadFromTheErrorDictionary) {
  struct Row {
    ScriptErrorDictionary error;
    AdminOutcome outcome;
    Lines log;
  };
  const Lines dismissed{"INFO DMGInstaller: admin authorization dismissed by the user"};
  const auto failed = [](const std::string& description) {
    return Lines{"ERROR DMGInstaller: Admin command error: " + description};
  };
  const std::string key = AdministratorScript::errorNumberKey;
  for (const auto& row : std::vector<Row>{
           {std::nullopt, AdminOutcome::succeeded, {}},
           {Json{{key, -128}}, AdminOutcome::cancelled, dismissed},
           {Json{{key, -128.0}}, AdminOutcome::cancelled, dismissed},
           {Json{{key, -1}}, AdminOutcome::failed, failed(R"({"NSAppleScriptErrorNumber":-1})")},
           {Json{{key, 1e300}}, AdminOutcome::failed, failed(R"({"NSAppleScriptErrorNumber":1e+300})")},
           {Json{{key, "-128"}}, AdminOutcome::failed, failed(R"({"NSAppleScriptErrorNumber":"-128"})")},
           {Json{{key, nullptr}}, AdminOutcome::failed, failed(R"({"NSAppleScriptErrorNumber":null})")},
           {Json{{"Message", "no"}}, AdminOutcome::failed, failed(R"({"Message":"no"})")},
           {Json::object(), AdminOutcome::failed, failed("{}")},
           {Json::array(), AdminOutcome::failed, failed("[]")},
           {Json{{"Message", "\xff"}}, AdminOutcome::failed, failed("{\"Message\":\"\xEF\xBF\xBD\"}")},
       }) {
    SimulatedMachine mac;
    EXPECT_EQ(adminOutcome(row.error), row.outcome) << row.log.size();
    EXPECT_EQ(mac.logLines(), row.log);
  }
}

}  // namespace
}  // namespace installer::test
