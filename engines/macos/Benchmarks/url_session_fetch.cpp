// url-session-fetch ROOT AUTHORITY HOST=ADDRESS URL: downloads once through the host's URL session and prints
// "seconds bytes peak-kilobytes". bench.py compares the figures with curl's.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <sys/resource.h>

#include "Base/Mutex.h"
#include "Base/POSIX/LinuxHostSettings.h"
#include "Platform/Linux/LinuxServices.h"

namespace {

using namespace installer;

class Taker : public URLSessionDelegate {
 public:
  void didFinishDownloadingTo(const std::shared_ptr<URLSessionTask>& /*task*/,
                              const Path& location) override {
    bytes = std::filesystem::file_size(location);
  }
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

  std::uintmax_t bytes = 0;
  std::optional<Error> error;

 private:
  Mutex mutex_;
  Condition done_;
  bool isDone_ GUARDED_BY(mutex_) = false;
};

long peakKilobytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

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
  const auto start = std::chrono::steady_clock::now();
  session->downloadTask(*url)->resume();
  taker->wait();
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  if (taker->error) {
    std::fprintf(stderr, "%s\n", taker->error->localizedDescription.c_str());
    return 1;
  }
  std::printf("%.4f %ju %ld\n", elapsed.count(), taker->bytes, peakKilobytes());
  return 0;
}
