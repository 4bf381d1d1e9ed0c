// Downloads without a resumption, complete or cancelled.
#include "Contract/LinuxURLSessionFixture.h"

namespace installer::test {
namespace {

using ::testing::IsEmpty;

TEST_F(LinuxDownloads, FetchesAFileOverTLSUnderItsRealName) {
  serve({{"/a", {{{"bytes", kBodySize}}}}});
  download("/a");
  EXPECT_EQ(recorder->error, std::nullopt) << recorder->error->localizedDescription;
  EXPECT_TRUE(recorder->body == hostilePattern(kBodySize));
  EXPECT_EQ(recorder->status, 200);
  EXPECT_EQ(recorder->lastWritten, static_cast<std::int64_t>(kBodySize));
  EXPECT_EQ(recorder->lastExpected, static_cast<std::int64_t>(kBodySize));
  EXPECT_EQ(recorder->finishes, 1);
  EXPECT_THAT(temporaryFiles(), IsEmpty());
}

TEST_F(LinuxDownloads, GivesAnErrorPageAsItCame) {
  serve({{"/a", {{{"text", "<html>"}, {"status", 503}}}}});
  download("/a");
  EXPECT_EQ(recorder->status, 503);
  EXPECT_EQ(recorder->body, "<html>");
  EXPECT_EQ(errorCode(), 0);
}

TEST_F(LinuxDownloads, SaysMinusOneWhenTheServerTellsNoLength) {
  for (const auto* const kind : {"none", "chunked"}) {
    ended = 0;
    recorder = std::make_shared<SessionRecorder>();
    serve({{"/a", {{{"bytes", kBodySize}, {"length", kind}}}}});
    download("/a");
    EXPECT_EQ(recorder->lastExpected, -1);
    EXPECT_TRUE(recorder->body == hostilePattern(kBodySize)) << kind;
  }
}

TEST_F(LinuxDownloads, DecodesABodyThatIsStoredCompressed) {
  serve({{"/a", {{{"bytes", kBodySize}, {"encoding", "gzip"}}}}});
  download("/a");
  EXPECT_EQ(recorder->error, std::nullopt) << recorder->error->localizedDescription;
  EXPECT_TRUE(recorder->body == hostilePattern(kBodySize));
  EXPECT_EQ(recorder->lastExpected, -1) << "the announced length isn't that of the file";
}

TEST_F(LinuxDownloads, TakesNoMoreThanWasAnnounced) {
  serve({{"/a", {{{"bytes", kBodySize}, {"extra", 1000}}}}});
  download("/a");
  EXPECT_TRUE(recorder->body == hostilePattern(kBodySize));
}

TEST_F(LinuxDownloads, EndsACancelledTransferOnceAndLeavesNothing) {
  serve({{"/a", {with(whole(), {{"stallAt", 150'000}})}}});
  recorder->cancelsAt = 1;
  download("/a");
  EXPECT_EQ(errorCode(), URLErrorCode::cancelled);
  EXPECT_EQ(recorder->error->downloadResumeData, nullptr);
  EXPECT_THAT(temporaryFiles(), IsEmpty());
}

TEST_F(LinuxDownloads, SendsNothingForATaskThatWasCancelledBefore) {
  serve({{"/a", {whole()}}});
  const auto task = session->downloadTask(cdn("/a"));
  task->cancel();
  run(task);
  EXPECT_EQ(errorCode(), URLErrorCode::cancelled);
  EXPECT_THAT(server->requests(), IsEmpty());
}

TEST_F(LinuxDownloads, SendsNothingOnceTheSessionIsInvalid) {
  serve({{"/a", {whole()}}});
  const auto made = session->downloadTask(cdn("/a"));
  session->invalidateAndCancel();
  made->resume();
  session->downloadTask(cdn("/a"))->resume();
  sessions.reset();
  EXPECT_EQ(recorder->finishes, 0);
  EXPECT_THAT(server->requests(), IsEmpty());
}

}  // namespace
}  // namespace installer::test
