// Redirects of downloads: followed, refused, in a loop.
#include "Contract/LinuxURLSessionFixture.h"

namespace installer::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(LinuxDownloads, AsksBeforeEachRedirect) {
  serve({{"/a", {{{"location", "b"}}}},
         {"/b", {{{"location", "https://mirror.kelo.example/c"}, {"status", 308}}}},
         {"/c", {whole()}}});
  download("/a");
  EXPECT_THAT(recorder->redirects,
              ElementsAre("https://cdn.kelo.example/b", "https://mirror.kelo.example/c"));
  EXPECT_TRUE(recorder->body == hostilePattern(kBodySize));
}

TEST_F(LinuxDownloads, EndsARefusedRedirectOnce) {
  serve({{"/a", {{{"location", "https://evil.example/"}}}}});
  recorder->followsRedirects = false;
  download("/a");
  session->finishTasksAndInvalidate();
  session.reset();
  sessions.reset();
  EXPECT_THAT(recorder->redirects, ElementsAre("https://evil.example/"));
  EXPECT_EQ(errorCode(), URLErrorCode::cancelled);
  EXPECT_EQ(recorder->finishes, 0) << "there was a file that a process at its end would have left";
  EXPECT_EQ(server->requests().size(), 1U);
}

// The body of a redirect may be truncated or endless.
TEST_F(LinuxDownloads, AsksAboutARedirectOnceItsHeadIsThere) {
  const json away{{"location", "https://evil.example/"}, {"bytes", 1000}};
  serve({{"/cut", {with(away, {{"closeAt", 10}})}},
         {"/stalls", {with(away, {{"stallAt", 10}})}},
         {"/none", {with(away, {{"stallAt", 0}})}}});
  recorder->followsRedirects = false;
  for (const auto* const path : {"/cut", "/stalls", "/none"}) {
    recorder->redirects.clear();
    download(path);
    EXPECT_THAT(recorder->redirects, ElementsAre("https://evil.example/")) << path;
    EXPECT_EQ(errorCode(), URLErrorCode::cancelled) << path;
  }
}

TEST_F(LinuxDownloads, LeavesNothingOfAResumedTransferOnceItsCancellationReturns) {
  serve({{"/a", {broken(), {{"location", "https://evil.example/"}}}}});
  download("/a");
  recorder->followsRedirects = false;
  recorder->invalidates = session;
  recorder->folder = server->settings().temporaryDirectory();
  resume();
  recorder->invalidates.reset();
  EXPECT_THAT(recorder->filesAfterRefusal, IsEmpty());
}

TEST_F(LinuxDownloads, GivesARefusedRedirectsOwnAnswer) {
  serve({{"/a", {{{"location", "https://evil.example/"}, {"text", "moved"}}}}});
  recorder->followsRedirects = false;
  recorder->cancelsRefused = false;
  download("/a");
  EXPECT_EQ(recorder->status, 302);
  EXPECT_EQ(recorder->body, "");
}

TEST_F(LinuxDownloads, SpeaksNothingButHTTPS) {
  serve({{"/a", {{{"location", "http://cdn.kelo.example/b"}}}}, {"/b", {whole()}}});
  download("/a");
  EXPECT_EQ(errorCode(), URLErrorCode::unsupportedURL);
  for (const auto* const url : {"http://cdn.kelo.example/b", "file:///etc/passwd", "ftp://cdn.kelo.example/b",
                                "cdn.kelo.example/b"}) {
    run(session->downloadTask(*URL::parse(url)));
    EXPECT_EQ(errorCode(), URLErrorCode::unsupportedURL) << url;
  }
  EXPECT_EQ(server->requests().size(), 1U);
}

TEST_F(LinuxDownloads, LeavesALoopAfterTwentyRedirects) {
  serve({{"/a", {{{"location", "/a"}}}}});
  download("/a");
  EXPECT_EQ(errorCode(), URLErrorCode::httpTooManyRedirects);
  EXPECT_EQ(recorder->redirects.size(), 20U);
}

TEST_F(LinuxDownloads, ShowsARedirectThatIsNoStrictURLAsNone) {
  for (const std::string place : {"https://cdn.kelo.example:99999/", "https://a@b@cdn.kelo.example/",
                                  "data:,x", "https://cdn.k\u00e4lo.example/"}) {
    ended = 0;
    recorder = std::make_shared<SessionRecorder>();
    serve({{"/a", {{{"location", place}}}}});
    download("/a");
    EXPECT_THAT(recorder->redirects, ElementsAre("")) << place;
    EXPECT_EQ(errorCode(), URLErrorCode::unsupportedURL) << place;
    EXPECT_EQ(server->requests().size(), 1U) << place;
  }
}

}  // namespace
}  // namespace installer::test
