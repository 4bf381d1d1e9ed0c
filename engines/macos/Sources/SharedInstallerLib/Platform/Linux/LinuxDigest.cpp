#include "Base/POSIX/MessageDigest.h"
#include "Platform/Linux/LinuxServices.h"

namespace installer {

namespace {

class LinuxSHA256 : public SHA256 {
 public:
  void update(std::string_view bytes) override { digest_.update(bytes); }
  std::array<std::uint8_t, 32> finish() override { return digest_.finish(); }

 private:
  MessageDigest digest_;
};

}  // namespace

std::unique_ptr<SHA256> LinuxDigest::startSHA256() {
  return std::make_unique<LinuxSHA256>();
}

}  // namespace installer
