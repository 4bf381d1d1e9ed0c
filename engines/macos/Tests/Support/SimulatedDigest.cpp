#include "Support/SimulatedDigest.h"

#include "Base/POSIX/MessageDigest.h"
#include "Base/Text.h"

namespace installer::test {

namespace {

class RealSHA256 : public SHA256 {
 public:
  void update(std::string_view bytes) override { digest_.update(bytes); }
  std::array<std::uint8_t, 32> finish() override { return digest_.finish(); }

 private:
  MessageDigest digest_;
};

}  // namespace

std::unique_ptr<SHA256> SimulatedDigest::startSHA256() {
  return std::make_unique<RealSHA256>();
}

std::string sha256(std::string_view bytes) {
  MessageDigest digest;
  digest.update(bytes);
  return hexadecimal(digest.finish());
}

}  // namespace installer::test
