#include <gtest/gtest.h>

#include "Support/SimulatedMachine.h"
#include "Support/SimulatedNetwork.h"

namespace installer::test {
namespace {

using namespace std::chrono_literals;

constexpr auto kURL = "https://cdn.example.test/a.dmg";

// Records every callback, and checks the rules for all of them.
class Recorder : public URLSessionDelegate {
 public:
  explicit Recorder(SimulatedMachine& itsMachine) : machine{itsMachine} {}

  void willPerformHTTPRedirection(const std::shared_ptr<URLSessionTask>& task,
                                  const HTTPURLResponse& redirect, const URLRequest& newRequest,
                                  const RedirectDecision& decide) override {
    note("redirect " + std::to_string(redirect.statusCode) + " to " + newRequest.url.absoluteString());
    if (!refuses) return decide(newRequest);
    decide(std::nullopt);
    task->cancel();
  }
  void didWriteData(const std::shared_ptr<URLSessionTask>&, std::int64_t written,
                    std::int64_t expected) override {
    note("wrote " + std::to_string(written) + " of " + std::to_string(expected));
  }
  void didFinishDownloadingTo(const std::shared_ptr<URLSessionTask>& task, const Path& location) override {
    lastFile = location;
    body = machine.files.read(location);
    note("finished with " + std::to_string(task->response()->statusCode));
  }
  void didCompleteWithError(const std::shared_ptr<URLSessionTask>&,
                            const std::optional<Error>& error) override {
    note(error ? "failed with " + std::to_string(error->code) : "completed");
    if (error && error->downloadResumeData) resumeData = *error->downloadResumeData;
  }

  SimulatedMachine& machine;
  bool refuses = false;
  Lines transcript;
  Path lastFile;
  std::string body;
  std::optional<std::string> resumeData;

 private:
  void note(std::string line) {
    EXPECT_FALSE(machine.dispatch.isMainThread());
    transcript.push_back(std::move(line));
  }
};

class SimulatedNetworkTest : public ::testing::Test {
 protected:
  SimulatedMachine machine;
  std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>(machine);
  std::shared_ptr<URLSession> session = machine.network.make(recorder);

  std::shared_ptr<URLSessionTask> download(const std::string& url = kURL) {
    auto task = session->downloadTask(*URL::parse(url));
    task->resume();
    return task;
  }
  Lines transcriptAfter(Duration duration) {
    machine.dispatch.advance(duration);
    return std::exchange(recorder->transcript, {});
  }
  std::string fetch(const std::string& url, Duration timeout = 60s) {
    std::string outcome = "nothing";
    const auto done = [&outcome](const std::optional<std::string>& data,
                                 const std::optional<HTTPURLResponse>& response,
                                 const std::optional<Error>& error) {
      if (error) outcome = "error " + std::to_string(error->code);
      if (response) outcome = std::to_string(response->statusCode) + " " + data.value_or("(no data)");
    };
    const auto task = session->dataTask({.url = *URL::parse(url), .timeoutInterval = timeout}, done);
    task->resume();
    EXPECT_EQ(outcome, "nothing");
    machine.dispatch.advance(2min);
    return outcome;
  }
};

TEST_F(SimulatedNetworkTest, FetchesData) {
  machine.network.on("https://cdn.example.test/meta.json").answers(200, "{}");
  machine.network.on("https://cdn.example.test/empty").answers(204);
  machine.network.on("https://cdn.example.test/hangs").neverAnswers();
  EXPECT_EQ(fetch("https://cdn.example.test/meta.json"), "200 {}");
  EXPECT_EQ(fetch("https://cdn.example.test/empty"), "204 (no data)");
  EXPECT_EQ(fetch("https://cdn.example.test/missing"), "404 not found");
  EXPECT_EQ(fetch("https://elsewhere.example.test/"), "error -1003");
  EXPECT_EQ(fetch("https://cdn.example.test/hangs"), "error -1001");
  machine.network.setOffline();
  EXPECT_EQ(fetch("https://cdn.example.test/meta.json"), "error -1009");
}

TEST_F(SimulatedNetworkTest, DownloadsInPieces) {
  machine.network.on(kURL).answers(200, std::string(700, 'x')).inPieces(300, 1s);
  download();
  EXPECT_EQ(transcriptAfter(0s), Lines{"wrote 300 of 700"});
  EXPECT_EQ(transcriptAfter(10s),
            (Lines{"wrote 600 of 700", "wrote 700 of 700", "finished with 200", "completed"}));
  EXPECT_EQ(recorder->body, std::string(700, 'x'));
  EXPECT_FALSE(machine.files.exists(recorder->lastFile));
  EXPECT_EQ(machine.network.bytesServed(kURL), 700);
}

TEST_F(SimulatedNetworkTest, HandsOverTheBodyOfAnErrorPage) {
  machine.network.on(kURL).answers(503, "sorry").withoutLength();
  download();
  EXPECT_EQ(transcriptAfter(1s), (Lines{"wrote 5 of -1", "finished with 503", "completed"}));
}

TEST_F(SimulatedNetworkTest, ResumesADroppedTransfer) {
  machine.network.on(kURL).answers(200, "0123456789").dropsNext(4);
  download();
  EXPECT_EQ(transcriptAfter(1s), (Lines{"wrote 4 of 10", "failed with -1005"}));
  session->downloadTaskWithResumeData(recorder->resumeData.value())->resume();
  EXPECT_EQ(transcriptAfter(1s), (Lines{"wrote 10 of 10", "finished with 206", "completed"}));
  EXPECT_EQ(recorder->body, "0123456789");
  EXPECT_EQ(machine.network.bytesServed(kURL), 10);
  EXPECT_EQ(machine.network.requestLines(),
            (Lines{std::string{"GET "} + kURL, std::string{"GET "} + kURL + " from 4"}));
}

TEST_F(SimulatedNetworkTest, StartsOverWhenTheResourceHasChanged) {
  machine.network.on(kURL).answers(200, "0123456789").dropsNext(4);
  download();
  transcriptAfter(1s);
  machine.network.on(kURL).answers(200, "abcdefghij");
  session->downloadTaskWithResumeData(recorder->resumeData.value())->resume();
  EXPECT_EQ(transcriptAfter(1s), (Lines{"wrote 10 of 10", "finished with 200", "completed"}));
  EXPECT_EQ(recorder->body, "abcdefghij");
}

TEST_F(SimulatedNetworkTest, HasNothingToResumeWithoutAValidator) {
  machine.network.on(kURL).answers(200, "0123456789").withoutValidator().dropsNext(4);
  download();
  transcriptAfter(1s);
  EXPECT_EQ(recorder->resumeData, std::nullopt);
}

TEST_F(SimulatedNetworkTest, FailsAtOnceOnGarbageToResume) {
  session->downloadTaskWithResumeData("garbage")->resume();
  EXPECT_EQ(transcriptAfter(0s), Lines{"failed with -1"});
  EXPECT_TRUE(machine.network.requests().empty());
}

TEST_F(SimulatedNetworkTest, AsksBeforeItFollowsARedirect) {
  machine.network.on("https://cdn.example.test/old").redirects(kURL);
  machine.network.on(kURL).answers(200, "abc");
  const auto task = download("https://cdn.example.test/old");
  EXPECT_EQ(transcriptAfter(1s), (Lines{std::string{"redirect 302 to "} + kURL, "wrote 3 of 3",
                                        "finished with 200", "completed"}));
  EXPECT_EQ(task->response()->url.absoluteString(), kURL);
}

TEST_F(SimulatedNetworkTest, EndsARefusedRedirectInEitherWay) {
  recorder->refuses = true;
  machine.network.on(kURL).redirects("https://evil.example.test/");
  download();
  EXPECT_EQ(transcriptAfter(1s), (Lines{"redirect 302 to https://evil.example.test/", "failed with -999"}));
  machine.network.setRefusalEndsAs(SimulatedNetwork::RefusalEndsAs::plainAnswer);
  download();
  EXPECT_EQ(transcriptAfter(1s),
            (Lines{"redirect 302 to https://evil.example.test/", "finished with 302", "completed"}));
}

TEST_F(SimulatedNetworkTest, GivesUpOnRedirectsInACircle) {
  machine.network.on(kURL).redirects(kURL);
  download();
  EXPECT_EQ(transcriptAfter(1s).back(), "failed with -1007");
}

TEST_F(SimulatedNetworkTest, CancelsARunningTask) {
  machine.network.on(kURL).answers(200, "abc").takes(5s);
  const auto task = download();
  EXPECT_EQ(transcriptAfter(1s), Lines{});
  task->cancel();
  task->cancel();
  EXPECT_EQ(recorder->transcript, Lines{});
  EXPECT_EQ(transcriptAfter(10s), Lines{"failed with -999"});
}

TEST_F(SimulatedNetworkTest, KeepsTheDelegateUntilTheLastTaskOfAnInvalidatedSessionHasEnded) {
  machine.network.on(kURL).answers(200, "abc").takes(5s);
  download();
  session->finishTasksAndInvalidate();
  download();
  EXPECT_EQ(transcriptAfter(0s), Lines{"failed with -999"});
  EXPECT_GT(recorder.use_count(), 1);
  EXPECT_EQ(transcriptAfter(10s), (Lines{"wrote 3 of 3", "finished with 200", "completed"}));
  EXPECT_EQ(recorder.use_count(), 1);
}

TEST_F(SimulatedNetworkTest, CancelsAllTasksOfASessionThatIsInvalidatedAtOnce) {
  machine.network.on(kURL).answers(200, "abc").takes(5s);
  download();
  session->invalidateAndCancel();
  EXPECT_EQ(transcriptAfter(10s), Lines{"failed with -999"});
  EXPECT_EQ(machine.network.openSessions(), 0U);
}

}  // namespace
}  // namespace installer::test
