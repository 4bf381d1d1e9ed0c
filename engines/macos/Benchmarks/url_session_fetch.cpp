// url-session-fetch ROOT AUTHORITY HOST=ADDRESS URL: downloads once through the host's URL session.
// bench.py compares it with curl.
#include <cstdio>
#include <filesystem>

#include "Base/Mutex.h"
#include "Base/POSIX/LinuxHostSettings.h"
#include "Platform/Linux/LinuxServices.h"

namespace {

using namespace installer;

class Taker : public URLSessionDelegate {
 public:
  void didCompleteWithError(const std::shared_ptr<URLSessionTask>& /*task*/,
                            const std::optional<Error>& failure) override {
    const MutexLock guard{mutex_};
    error = failure;
    isDone_ = true;
    done_.notifyOne();
  }
  void wait() {
    MutexLock lock{mutex_};
    while (!isDone_) done_.wait(mutex_);
  }

  std::optional<Error> error;

 private:
  Mutex mutex_;
  Condition done_;
  bool isDone_ GUARDED_BY(mutex_) = false;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fputs("usage: url-session-fetch ROOT AUTHORITY HOST=ADDRESS URL\n", stderr);
    return 2;
  }
  const std::string override{argv[3]};
  LinuxHostSettings settings;
  settings.root = argv[1];
  settings.extraCertificateAuthority = argv[2];
  settings.hostAddresses[override.substr(0, override.find('='))] = override.substr(override.find('=') + 1);
  std::filesystem::create_directories(settings.temporaryDirectory());
  const auto url = URL::parse(argv[4]);
  if (!url) return 2;

  const auto sessions = makeLinuxURLSessions(settings);
  const auto taker = std::make_shared<Taker>();
  const auto session = sessions->make(taker);
  session->downloadTask(*url)->resume();
  taker->wait();
  if (taker->error) {
    std::fprintf(stderr, "%s\n", taker->error->localizedDescription.c_str());
    return 1;
  }
  return 0;
}
