#include "Platform/Linux/HTTP/CurlEngine.h"

#include <algorithm>
#include <future>
#include <utility>

#include "Platform/Linux/HTTP/CurlLibrary.h"

namespace installer {

namespace {

constexpr int kIdleMilliseconds = 60'000;  // a post wakes the thread earlier

}  // namespace

CurlEngine::CurlEngine(const LinuxHostSettings& settings)
    : connections_{settings}, multi_{curl().multi_init()}, thread_{[this] { serve(); }} {
}

CurlEngine::~CurlEngine() {
  {
    const MutexLock guard{mutex_};
    isStopping_ = true;
  }
  curl().multi_wakeup(multi_);
  thread_.join();
  while (!transfers_.empty()) drop(transfers_.begin()->second.get());
  curl().multi_cleanup(multi_);
}

void CurlEngine::post(Work work) {
  {
    const MutexLock guard{mutex_};
    posted_.push_back(std::move(work));
  }
  curl().multi_wakeup(multi_);
}

void CurlEngine::run(const Work& work) {
  std::promise<void> ran;
  post([&] {
    work();
    ran.set_value();
  });
  ran.get_future().wait();
}

CurlTransfer* CurlEngine::start(HTTPRequest request, std::shared_ptr<CurlTransfer::Client> client) {
  auto transfer = std::make_unique<CurlTransfer>(connections_, std::move(request), std::move(client));
  auto* const started = transfer.get();
  transfers_[started->handle()] = std::move(transfer);
  curl().multi_add_handle(multi_, started->handle());
  return started;
}

void CurlEngine::drop(CurlTransfer* transfer) {
  if (transfer != nullptr) take(transfer->handle());
}

std::unique_ptr<CurlTransfer> CurlEngine::take(CURL* handle) {
  const auto entry = transfers_.find(handle);
  curl().multi_remove_handle(multi_, handle);
  auto transfer = std::move(entry->second);
  transfers_.erase(entry);
  return transfer;
}

void CurlEngine::end(CURL* handle, const CurlFailure& failure) {
  const auto transfer = take(handle);
  transfer->client().didEnd(failure);
}

void CurlEngine::serve() {
  while (runPosted()) {
    int running = 0;
    curl().multi_perform(multi_, &running);
    endFinished();
    endSilent();
    curl().multi_poll(multi_, nullptr, 0, untilNextDeadline(), nullptr);
  }
}

bool CurlEngine::runPosted() {
  std::vector<Work> works;
  {
    const MutexLock guard{mutex_};
    if (isStopping_) return false;
    works = std::exchange(posted_, {});
  }
  for (const auto& work : works) work();
  return true;
}

void CurlEngine::endFinished() {
  int left = 0;
  while (const auto* const message = curl().multi_info_read(multi_, &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    auto* const handle = message->easy_handle;
    end(handle, transfers_.at(handle)->failure(message->data.result));
  }
}

void CurlEngine::endSilent() {
  const auto now = CurlTransfer::Clock::now();
  std::vector<CURL*> silent;
  for (const auto& [handle, transfer] : transfers_) {
    if (now >= transfer->deadline()) silent.push_back(handle);
  }
  for (auto* const handle : silent) end(handle, transfers_.at(handle)->silenceFailure());
}

int CurlEngine::untilNextDeadline() const {
  using std::chrono::milliseconds;
  auto wait = milliseconds{kIdleMilliseconds};
  const auto now = CurlTransfer::Clock::now();
  for (const auto& [handle, transfer] : transfers_) {
    wait = std::min(wait, std::chrono::ceil<milliseconds>(transfer->deadline() - now));
  }
  return static_cast<int>(std::max(wait, milliseconds{0}).count());
}

}  // namespace installer
