// The contract of URL sessions: over the real server on the loopback address, or simulated.
#include <algorithm>
#include <atomic>

#include "Base/Mutex.h"
#include "Contract/MachineUnderTest.h"
#include "Support/ServerResource.h"

namespace installer::test {
namespace {

using namespace std::chrono_literals;

// Records every callback and the progress of a transfer.
class Recorder : public URLSessionDelegate {
 public:
  enum class Redirects { follow, refuse, refuseAndCancel };

  explicit Recorder(FileSystem& files) : files_{files} {}

  void willPerformHTTPRedirection(const std::shared_ptr<URLSessionTask>& task,
                                  const HTTPURLResponse& redirect, const URLRequest& newRequest,
                                  const RedirectDecision& decide) override {
    note("redirect " + std::to_string(redirect.statusCode) + " to " + newRequest.url.path());
    if (redirects == Redirects::follow) return decide(newRequest);
    decide(std::nullopt);
    if (redirects == Redirects::refuseAndCancel) task->cancel();
  }
  void didWriteData(const std::shared_ptr<URLSessionTask>&, std::int64_t totalWritten,
                    std::int64_t totalExpected) override {
    const MutexLock lock{mutex_};
    EXPECT_GE(totalWritten, written_);
    written_ = totalWritten;
    expected_ = totalExpected;
  }
  void didFinishDownloadingTo(const std::shared_ptr<URLSessionTask>& task, const Path& location) override {
    note("finished " + std::to_string(task->response()->statusCode) + " " +
         files_.readFile(location).value_or("(no file)"));
    const MutexLock lock{mutex_};
    location_ = location;
  }
  void didCompleteWithError(const std::shared_ptr<URLSessionTask>&,
                            const std::optional<Error>& error) override {
    note(error ? "failed " + error->domain + " " + std::to_string(error->code) : "completed");
    const MutexLock lock{mutex_};
    if (error) resumeData_ = error->downloadResumeData;
    ++ended_;
  }

  Redirects redirects = Redirects::follow;

  Lines transcript() const { return locked(&Recorder::transcript_); }
  int ended() const { return locked(&Recorder::ended_); }
  std::int64_t written() const { return locked(&Recorder::written_); }
  std::int64_t expected() const { return locked(&Recorder::expected_); }
  Path location() const { return locked(&Recorder::location_); }
  std::shared_ptr<const std::string> resumeData() const { return locked(&Recorder::resumeData_); }
  void forget() {
    const MutexLock lock{mutex_};
    transcript_.clear();
    written_ = 0;
    ended_ = 0;
  }

 private:
  FileSystem& files_;
  mutable Mutex mutex_;
  Lines transcript_ GUARDED_BY(mutex_);
  int ended_ GUARDED_BY(mutex_) = 0;
  std::int64_t written_ GUARDED_BY(mutex_) = 0;
  std::int64_t expected_ GUARDED_BY(mutex_) = 0;
  Path location_ GUARDED_BY(mutex_);
  std::shared_ptr<const std::string> resumeData_ GUARDED_BY(mutex_);

  void note(std::string line) {
    const MutexLock lock{mutex_};
    transcript_.push_back(std::move(line));
  }
  template <class T>
  T locked(T Recorder::* field) const {
    const MutexLock lock{mutex_};
    return this->*field;
  }
};

class URLSessionContract : public Contract {
 protected:
  static constexpr auto kBody = "0123456789";
  static constexpr auto kCancelled = "failed NSURLErrorDomain -999";

  std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>(files);
  std::shared_ptr<URLSession> session = machine.sessions.make(recorder);

  URL url(const std::string& path) { return *URL::parse(under->urlOf(path)); }
  std::shared_ptr<URLSessionTask> download(const std::string& path) {
    auto task = session->downloadTask(url(path));
    task->resume();
    return task;
  }
  // Waits for the end of `tasks` tasks, and returns and clears the transcript.
  Lines transcriptAtTheEnd(int tasks = 1) {
    turnUntil([&] { return recorder->ended() >= tasks; });
    machine.dispatch.runMainLoop(20ms);
    auto lines = recorder->transcript();
    recorder->forget();
    return lines;
  }
  // For example "200 body", "204", "NSURLErrorDomain -1001", or "NSURLErrorDomain -1005 after 200" when a
  // head had arrived.
  std::string fetch(URLSession& from, const std::string& path, Duration timeout = 30s) {
    Mutex mutex;
    Lines outcomes;
    const auto task = from.dataTask(
        URLRequest{.url = url(path), .timeoutInterval = timeout},
        [&](const std::optional<std::string>& data, const std::optional<HTTPURLResponse>& response,
            const std::optional<Error>& error) {
          const MutexLock lock{mutex};
          EXPECT_TRUE(response || error);
          const auto status = response ? std::to_string(response->statusCode) : "";
          outcomes.push_back(error ? error->domain + " " + std::to_string(error->code) : status);
          if (error && response) outcomes.back() += " after " + status;
          if (data) outcomes.back() += " " + *data;
        });
    EXPECT_EQ(task->response(), std::nullopt);
    task->resume();
    turnUntil([&] {
      const MutexLock lock{mutex};
      return !outcomes.empty();
    });
    machine.dispatch.runMainLoop(10ms);
    EXPECT_EQ(outcomes.size(), 1U);
    return outcomes.empty() ? "" : outcomes.front();
  }
};

TEST_P(URLSessionContract, FetchesData) {
  under->serverResource("/data").answers(200, "body");
  under->serverResource("/empty").answers(200, "");
  under->serverResource("/error").answers(503, "sorry");
  EXPECT_EQ(fetch(*session, "/data"), "200 body");
  EXPECT_EQ(fetch(*session, "/empty"), "200");
  EXPECT_EQ(fetch(*session, "/error"), "503 sorry");
  EXPECT_EQ(fetch(*session, "/missing"), "404 not found");
  EXPECT_EQ(under->requestsToServer(), (Lines{"GET /data", "GET /empty", "GET /error", "GET /missing"}));
}

TEST_P(URLSessionContract, FetchesNoMoreDataThanItKeepsInMemory) {
  const std::string most(URLSession::kMaximumDataLength, 'x');
  under->serverResource("/most").answers(200, most);
  under->serverResource("/more").answers(200, most + "x");
  EXPECT_EQ(fetch(*session, "/most").size(), most.size() + 4);
  EXPECT_EQ(fetch(*session, "/more"), "NSURLErrorDomain -1103 after 200");
}

TEST_P(URLSessionContract, TellsALostConnectionFromSilence) {
  under->serverResource("/lost").fails(URLErrorCode::networkConnectionLost);
  under->serverResource("/cut").answers(200, kBody).dropsAlways(4);
  under->serverResource("/silent").neverAnswers();
  EXPECT_EQ(fetch(*session, "/lost"), "NSURLErrorDomain -1005");
  EXPECT_EQ(fetch(*session, "/cut"), "NSURLErrorDomain -1005 after 200");
  EXPECT_EQ(fetch(*session, "/silent", 300ms), "NSURLErrorDomain -1001");
}

TEST_P(URLSessionContract, KnowsATasksIdentifierBeforeItStarts) {
  const auto first = session->downloadTask(url("/a"));
  const auto second = session->downloadTask(url("/a"));
  EXPECT_NE(first->taskIdentifier(), second->taskIdentifier());
  machine.dispatch.runMainLoop(10ms);
  EXPECT_EQ(under->requestsToServer(), Lines{});
}

TEST_P(URLSessionContract, DownloadsToAFileThatIsGoneAfterwards) {
  under->serverResource("/file").answers(200, kBody);
  const auto task = download("/file");
  EXPECT_EQ(transcriptAtTheEnd(), (Lines{"finished 200 0123456789", "completed"}));
  EXPECT_EQ(recorder->expected(), 10);
  EXPECT_FALSE(files.fileExists(recorder->location()));
  EXPECT_EQ(task->response()->url.absoluteString(), under->urlOf("/file"));
}

TEST_P(URLSessionContract, CountsWhatWasWritten) {
  under->serverResource("/file").answers(200, std::string(300000, 'x'));
  under->serverResource("/unknown").answers(200, kBody).withoutLength();
  download("/file");
  turnUntil([&] { return recorder->ended() == 1; });
  EXPECT_EQ(recorder->written(), 300000);
  EXPECT_EQ(recorder->expected(), 300000);
  recorder->forget();
  download("/unknown");
  turnUntil([&] { return recorder->ended() == 1; });
  EXPECT_EQ(recorder->written(), 10);
  EXPECT_EQ(recorder->expected(), -1);
}

TEST_P(URLSessionContract, HandsOverACompleteBodyWhateverTheStatus) {
  under->serverResource("/file").answers(503, "sorry");
  download("/file");
  EXPECT_EQ(transcriptAtTheEnd(), (Lines{"finished 503 sorry", "completed"}));
}

TEST_P(URLSessionContract, ResumesADroppedTransfer) {
  under->serverResource("/file").answers(200, kBody).dropsNext(4);
  download("/file");
  EXPECT_EQ(transcriptAtTheEnd(), Lines{"failed NSURLErrorDomain -1005"});
  ASSERT_NE(recorder->resumeData(), nullptr);
  session->downloadTaskWithResumeData(*recorder->resumeData())->resume();
  EXPECT_EQ(transcriptAtTheEnd(), (Lines{"finished 206 0123456789", "completed"}));
  EXPECT_EQ(recorder->expected(), 10);
  EXPECT_EQ(under->requestsToServer(), (Lines{"GET /file", "GET /file from 4"}));
}

TEST_P(URLSessionContract, ResumesATransferThatWasDroppedAgain) {
  under->serverResource("/file").answers(200, kBody).dropsNext(4).dropsNext(3);
  download("/file");
  for (int attempt = 0; attempt < 2; ++attempt) {
    EXPECT_EQ(transcriptAtTheEnd(), Lines{"failed NSURLErrorDomain -1005"});
    session->downloadTaskWithResumeData(*recorder->resumeData())->resume();
  }
  EXPECT_EQ(transcriptAtTheEnd(), (Lines{"finished 206 0123456789", "completed"}));
  EXPECT_EQ(under->requestsToServer(), (Lines{"GET /file", "GET /file from 4", "GET /file from 7"}));
}

TEST_P(URLSessionContract, NeverJoinsTheBytesOfTwoVersions) {
  under->serverResource("/file").answers(200, kBody).dropsNext(4);
  download("/file");
  transcriptAtTheEnd();
  under->serverResource("/file").answers(200, "abcdefghij");
  session->downloadTaskWithResumeData(*recorder->resumeData())->resume();
  EXPECT_EQ(transcriptAtTheEnd(), (Lines{"finished 200 abcdefghij", "completed"}));
}

TEST_P(URLSessionContract, StartsOverAtAServerWithoutRanges) {
  under->serverResource("/file").answers(200, kBody).ignoresRanges().dropsNext(4);
  download("/file");
  transcriptAtTheEnd();
  if (const auto resumeData = recorder->resumeData()) {
    session->downloadTaskWithResumeData(*resumeData)->resume();
    EXPECT_EQ(transcriptAtTheEnd(), (Lines{"finished 200 0123456789", "completed"}));
  }
}

TEST_P(URLSessionContract, FailsAtOnceOnGarbageToResume) {
  session->downloadTaskWithResumeData("garbage")->resume();
  const auto lines = transcriptAtTheEnd();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_TRUE(lines.front().starts_with("failed NSURLErrorDomain -")) << lines.front();
  EXPECT_EQ(under->requestsToServer(), Lines{});
}

TEST_P(URLSessionContract, AsksBeforeItFollowsARedirect) {
  under->serverResource("/old").redirects(under->urlOf("/new"));
  under->serverResource("/new").answers(200, kBody);
  const auto task = download("/old");
  EXPECT_EQ(transcriptAtTheEnd(), (Lines{"redirect 302 to /new", "finished 200 0123456789", "completed"}));
  EXPECT_EQ(task->response()->url.absoluteString(), under->urlOf("/new"));
}

TEST_P(URLSessionContract, FollowsRedirectsWithoutADelegate) {
  under->serverResource("/old").redirects(under->urlOf("/new"));
  under->serverResource("/new").answers(200, "new");
  EXPECT_EQ(fetch(*machine.sessions.shared(), "/old"), "200 new");
}

TEST_P(URLSessionContract, EndsARefusedRedirectWithItsOwnAnswer) {
  recorder->redirects = Recorder::Redirects::refuse;
  under->serverResource("/old").redirects(under->urlOf("/new"));
  download("/old");
  const auto lines = transcriptAtTheEnd();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0], "redirect 302 to /new");
  EXPECT_TRUE(lines[1].starts_with("finished 302")) << lines[1];
  EXPECT_EQ(lines[2], "completed");
  EXPECT_EQ(fetch(*session, "/old"), "302");
  EXPECT_EQ(under->requestsToServer(), (Lines{"GET /old", "GET /old"}));
}

TEST_P(URLSessionContract, EndsARefusedAndCancelledRedirectOnce) {
  recorder->redirects = Recorder::Redirects::refuseAndCancel;
  under->serverResource("/old").redirects(under->urlOf("/new"));
  download("/old");
  const auto lines = transcriptAtTheEnd();
  ASSERT_GE(lines.size(), 2U);
  EXPECT_TRUE(lines[1] == kCancelled || lines[1].starts_with("finished 302")) << lines[1];
  EXPECT_EQ(under->requestsToServer(), Lines{"GET /old"});
}

TEST_P(URLSessionContract, FollowsNoRedirectToWhatIsNoStrictURL) {
  recorder->redirects = Recorder::Redirects::refuseAndCancel;
  for (const std::string place :
       {"data:text/plain,x", "https://a@b@c.example/", "https://c.example:99999/"}) {
    under->serverResource("/old").redirects(place);
    download("/old");
    transcriptAtTheEnd();
  }
  EXPECT_EQ(under->requestsToServer(), (Lines{"GET /old", "GET /old", "GET /old"}));
}

TEST_P(URLSessionContract, GivesUpOnRedirectsInACircle) {
  under->serverResource("/circle").redirects(under->urlOf("/circle"));
  EXPECT_TRUE(fetch(*session, "/circle").starts_with("NSURLErrorDomain -1007"));
}

TEST_P(URLSessionContract, CancelsATaskOnce) {
  under->serverResource("/silent").neverAnswers();
  const auto task = download("/silent");
  turnUntil([this] { return !under->requestsToServer().empty(); });
  task->cancel();
  task->cancel();
  EXPECT_EQ(transcriptAtTheEnd(), Lines{kCancelled});
}

TEST_P(URLSessionContract, HasNothingToCancelOnceATaskHasEnded) {
  under->serverResource("/file").answers(200, kBody);
  const auto task = download("/file");
  transcriptAtTheEnd();
  task->cancel();
  machine.dispatch.runMainLoop(20ms);
  EXPECT_EQ(recorder->transcript(), Lines{});
}

TEST_P(URLSessionContract, LetsTheLastTaskEndBeforeItLetsTheDelegateGo) {
  under->serverResource("/file").answers(200, kBody);
  download("/file");
  session->finishTasksAndInvalidate();
  EXPECT_EQ(transcriptAtTheEnd(), (Lines{"finished 200 0123456789", "completed"}));
  turnUntil([this] { return recorder.use_count() == 1; });
}

TEST_P(URLSessionContract, CancelsTheTasksOfASessionThatIsInvalidatedAtOnce) {
  under->serverResource("/silent").neverAnswers();
  download("/silent");
  session->invalidateAndCancel();
  EXPECT_EQ(transcriptAtTheEnd(), Lines{kCancelled});
  turnUntil([this] { return recorder.use_count() == 1; });
}

TEST_P(URLSessionContract, FailsTheTasksOfAnInvalidatedSession) {
  session->invalidateAndCancel();
  EXPECT_EQ(fetch(*session, "/data"), "NSURLErrorDomain -999");
  EXPECT_EQ(under->requestsToServer(), Lines{});
}

INSTANTIATE_CONTRACT(URLSessionContract);

}  // namespace
}  // namespace installer::test
