// Signers, and signing times.
#include "Support/Programs.h"

namespace lab {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

TEST_F(Programs, ASelfSignedSignerIsRefused) {
  const fs::path file = workshop.machO("code");
  workshop.sign(file, LeafKind::selfSigned);
  expectRefused(file, "the signer is self-signed and not trusted");
}

TEST_F(Programs, AdHocCodeIsValidButMeetsNoAnchor) {
  const fs::path app = workshop.app("A.app");
  workshop.signAdHoc(app);
  EXPECT_EQ(verifyCode(app).status, 0) << verifyCode(app).text;
  EXPECT_EQ(verifyTeam(app).status, 3);
}

TEST_F(Programs, ExpiryAndTimestamps) {
  using namespace std::chrono;
  const sys_seconds during = sys_days(2021y / June / 1d);
  const struct {
    const char* what;
    LeafKind leaf;
    bool stamped;
    sys_seconds time;
    std::uint32_t flags;
    int status;
    const char* says;
  } rows[] = {
      {"stamped before it expired", LeafKind::expired, true, during, 0, 0, "valid on disk"},
      {"stamped after it expired", LeafKind::expired, true, currentTime(), 0, 1, "certificate had expired"},
      {"signed before it expired, unstamped", LeafKind::expired, false, during, 0, 0,
       "has expired and there is no secure timestamp"},
      {"signed after it expired, unstamped", LeafKind::expired, false, currentTime(), 0, 0,
       "has expired and there is no secure timestamp"},
      {"expired, unstamped, and the code forbids that", LeafKind::expired, false, during,
       kForceExpirationFlag, 1, "certificate had expired"},
      {"expired, stamped, and the code forbids expiry", LeafKind::expired, true, during, kForceExpirationFlag,
       0, "valid on disk"},
      {"stamped before it began", LeafKind::notYetValid, true, currentTime(), 0, 1, "wasn't valid yet"},
      {"signed before it began", LeafKind::notYetValid, false, currentTime(), 0, 1, "wasn't valid yet"},
      {"claims a signing time in the future", LeafKind::notYetValid, false, sys_days(2048y / June / 1d), 0, 1,
       "is in the future"},
      {"stamped in the future", LeafKind::notYetValid, true, sys_days(2048y / June / 1d), 0, 1,
       "timestamp is in the future"}};
  for (const auto& row : rows) {
    const fs::path file = workshop.machO("code");
    SigningOptions options;
    options.stamped = row.stamped;
    options.time = row.time;
    options.flags = row.flags;
    workshop.sign(file, row.leaf, options);
    const ProgramResult result = verifyCode(file);
    EXPECT_EQ(result.status, row.status) << row.what << ": " << result.text;
    EXPECT_THAT(result.text, HasSubstr(row.says)) << row.what;
  }
}

TEST_F(Programs, ATimestampFromAnotherSignatureIsRefused) {
  const fs::path one = workshop.machO("one");
  workshop.sign(one);
  MachOPlan plan;
  plan.text = {1, 2, 3};
  const fs::path two = workshop.machO("two", plan);
  workshop.sign(two);
  // Both timestamps have the same structure, so their imprints can be exchanged.
  const Bytes first = contentOf(one);
  Bytes second = contentOf(two);
  const Bytes mark = fromHex(
                         "300d06096086480165030402010500"
                         "0420")
                         .value();  // SHA-256, then the imprint
  const std::size_t from = find(first, mark);
  const std::size_t to = find(second, mark);
  std::copy_n(first.begin() + static_cast<std::ptrdiff_t>(from), 49,
              second.begin() + static_cast<std::ptrdiff_t>(to));
  writeFile(two, second);
  expectRefused(two, "secure timestamp: ");
}

}  // namespace
}  // namespace lab
