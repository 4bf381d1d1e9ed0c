// URL sessions of this host against a server that misbehaves, over real TLS on loopback.
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <random>
#include <sys/resource.h>

#include "Base/Mutex.h"
#include "Base/POSIX/ProcessStart.h"
#include "Contract/HostileServer.h"
#include "Platform/Linux/LinuxServices.h"
#include "Platform/URLSession.h"

namespace installer::test {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::Ge;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr auto patience = std::chrono::minutes{2};  // a test that waits longer has failed

URL cdn(const std::string& path) {
  return *URL::parse("https://cdn.kelo.example" + path);
}

std::vector<std::string> namesIn(const Path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator{folder})
    names.push_back(entry.path().filename());
  return names;
}

// Keeps what a session tells, and takes downloads away as the engine does.
class SessionRecorder : public URLSessionDelegate {
 public:
  void willPerformHTTPRedirection(const std::shared_ptr<URLSessionTask>& task,
                                  const HTTPURLResponse& /*redirect*/, const URLRequest& newRequest,
                                  const RedirectDecision& decide) override {
    redirects.push_back(newRequest.url.absoluteString());
    if (!followsRedirects) {
      decide(std::nullopt);
      if (cancelsRefused) task->cancel();
      if (invalidates) invalidates->finishTasksAndInvalidate();
      if (invalidates) filesAfterRefusal = namesIn(folder);
      return;
    }
    decide(newRequest);
  }
  void didWriteData(const std::shared_ptr<URLSessionTask>& task, std::int64_t written,
                    std::int64_t expected) override {
    EXPECT_GE(written, lastWritten);
    lastWritten = written;
    lastExpected = expected;
    if (cancelsAt && written >= *cancelsAt) task->cancel();
  }
  void didFinishDownloadingTo(const std::shared_ptr<URLSessionTask>& task, const Path& location) override {
    status = task->response()->statusCode;
    std::ifstream file{location, std::ios::binary};
    body = std::string{std::istreambuf_iterator<char>{file}, {}};
    ++finishes;
  }
  void didCompleteWithError(const std::shared_ptr<URLSessionTask>& /*task*/,
                            const std::optional<Error>& failure) override {
    const MutexLock guard{mutex};
    error = failure;
    ++completions;
    changed.notifyAll();
  }

  // True when the next completion came in time.
  bool waitFor(int count) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    const MutexLock lock{mutex};
    while (completions < count) {
      if (!changed.waitUntil(mutex, deadline)) return completions >= count;
    }
    return true;
  }

  bool followsRedirects = true;
  bool cancelsRefused = true;
  std::shared_ptr<URLSession> invalidates;  // after a refusal
  Path folder;
  std::optional<std::int64_t> cancelsAt;

  std::vector<std::string> redirects;
  std::vector<std::string> filesAfterRefusal{"nothing was refused"};
  std::int64_t lastWritten = 0;
  std::int64_t lastExpected = 0;
  int finishes = 0;
  int status = 0;
  std::string body;
  std::optional<Error> error;

 private:
  Mutex mutex;
  Condition changed;
  int completions GUARDED_BY(mutex) = 0;
};

class LinuxDownloads : public ::testing::Test {
 protected:
  void serve(const json& paths, const json& hosts = json::object(), Duration requestTimeout = Duration{60}) {
    server = std::make_unique<HostileServer>(paths, hosts);
    auto settings = server->settings();
    settings.requestTimeout = requestTimeout;
    sessions = makeLinuxURLSessions(settings);
    session = sessions->make(recorder);
  }
  ~LinuxDownloads() override {
    if (session) session->invalidateAndCancel();
    session.reset();
    sessions.reset();
  }

  void run(const std::shared_ptr<URLSessionTask>& task) {
    recorder->lastWritten = 0;
    task->resume();
    ASSERT_TRUE(recorder->waitFor(++ended));
  }
  void download(const std::string& path) { run(session->downloadTask(cdn(path))); }
  // Goes on from what the last failure handed over.
  void resume() {
    ASSERT_TRUE(recorder->error && recorder->error->downloadResumeData) << "nothing to resume";
    run(session->downloadTaskWithResumeData(*recorder->error->downloadResumeData));
  }
  std::int64_t errorCode() const { return recorder->error ? recorder->error->code : 0; }

  std::vector<std::string> temporaryFiles() const { return namesIn(server->settings().temporaryDirectory()); }

  std::shared_ptr<SessionRecorder> recorder = std::make_shared<SessionRecorder>();
  std::unique_ptr<HostileServer> server;
  std::unique_ptr<URLSessions> sessions;
  std::shared_ptr<URLSession> session;
  int ended = 0;
};

constexpr std::size_t size = 300'000;

TEST_F(LinuxDownloads, FetchesAFileOverTLSUnderItsRealName) {
  serve({{"/a", {{{"bytes", size}}}}});
  download("/a");
  EXPECT_EQ(recorder->error, std::nullopt) << recorder->error->localizedDescription;
  EXPECT_TRUE(recorder->body == hostilePattern(size));
  EXPECT_EQ(recorder->status, 200);
  EXPECT_EQ(recorder->lastWritten, static_cast<std::int64_t>(size));
  EXPECT_EQ(recorder->lastExpected, static_cast<std::int64_t>(size));
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
    serve({{"/a", {{{"bytes", size}, {"length", kind}}}}});
    download("/a");
    EXPECT_EQ(recorder->lastExpected, -1);
    EXPECT_TRUE(recorder->body == hostilePattern(size)) << kind;
  }
}

TEST_F(LinuxDownloads, DecodesABodyThatIsStoredCompressed) {
  serve({{"/a", {{{"bytes", size}, {"encoding", "gzip"}}}}});
  download("/a");
  EXPECT_EQ(recorder->error, std::nullopt) << recorder->error->localizedDescription;
  EXPECT_TRUE(recorder->body == hostilePattern(size));
  EXPECT_EQ(recorder->lastExpected, -1) << "the announced length isn't that of the file";
}

TEST_F(LinuxDownloads, TakesNoMoreThanWasAnnounced) {
  serve({{"/a", {{{"bytes", size}, {"extra", 1000}}}}});
  download("/a");
  EXPECT_TRUE(recorder->body == hostilePattern(size));
}

// Resumption.

struct Resumption {
  std::string name;
  json first;               // the answer that breaks off
  std::vector<json> later;  // the answers to the resumed download
  std::int64_t from;        // where the request for the rest starts
  int seed = 0;             // of the body that must come out
  int requests = 2;         // in all
};

class Resuming : public LinuxDownloads, public ::testing::WithParamInterface<Resumption> {};

TEST_P(Resuming, NeverJoinsTwoVersions) {
  const auto& row = GetParam();
  json answers = json::array({row.first});
  for (const auto& answer : row.later) answers.push_back(answer);
  serve({{"/a", answers}});
  download("/a");
  EXPECT_EQ(errorCode(), URLErrorCode::networkConnectionLost);
  resume();
  EXPECT_EQ(recorder->error, std::nullopt) << recorder->error->localizedDescription;
  EXPECT_TRUE(recorder->body == hostilePattern(size, row.seed));
  EXPECT_EQ(recorder->finishes, 1);
  EXPECT_THAT(temporaryFiles(), IsEmpty());
  const auto requests = server->requests();
  ASSERT_EQ(requests.size(), static_cast<std::size_t>(row.requests));
  EXPECT_EQ(requests[1].from, row.from);
  if (row.requests == 3) {
    EXPECT_EQ(requests[2].from, std::nullopt) << "not a clean restart";
  }
}

json whole(int seed = 0) {
  return {{"bytes", size}, {"seed", seed}};
}
json with(json answer, const json& more) {
  answer.update(more);
  return answer;
}
json broken() {
  return with(whole(), {{"closeAt", 100'000}});
}
json part(const json& ranges, int seed = 0) {
  return with(whole(seed), {{"ranges", ranges}});
}

INSTANTIATE_TEST_SUITE_P(
    Servers, Resuming,
    ::testing::Values(
        Resumption{"TheRestOfTheSameVersion", broken(), {whole()}, 100'000},
        Resumption{"AfterAReset", with(whole(), {{"resetAt", 100'000}}), {whole()}, 100'000},
        Resumption{"AnotherVersionComesWhole", broken(), {whole(1)}, 100'000, 1},
        Resumption{"AServerWithoutRanges", broken(), {part("ignore")}, 100'000},
        Resumption{"AnotherStart", broken(), {part("wrongStart"), whole()}, 100'000, 0, 3},
        Resumption{"NotAllOfTheRest", broken(), {part("shortRange"), whole()}, 100'000, 0, 3},
        Resumption{"AnotherTotal", broken(), {part("wrongTotal"), whole()}, 100'000, 0, 3},
        Resumption{"NoContentRange", broken(), {part("noContentRange"), whole()}, 100'000, 0, 3},
        Resumption{"ALengthThatContradicts", broken(), {part("wrongLength"), whole()}, 100'000, 0, 3},
        Resumption{"AnotherTag", broken(), {part("changedTag"), whole(1)}, 100'000, 1, 3},
        Resumption{"APartOfAnotherVersion", broken(), {part("always", 1), whole(1)}, 100'000, 1, 3},
        Resumption{"PreconditionFailed", broken(), {part(412), whole()}, 100'000, 0, 3},
        Resumption{"RangeNotSatisfiable", broken(), {part(416), whole()}, 100'000, 0, 3},
        Resumption{
            "ByDate",
            with(broken(),
                 {{"etag", nullptr}, {"headers", {{"Last-Modified", "Sat, 01 Nov 2025 10:00:00 GMT"}}}}),
            {with(part("always"),
                  {{"etag", nullptr}, {"headers", {{"Last-Modified", "Sat, 01 Nov 2025 10:00:00 GMT"}}}})},
            100'000},
        Resumption{
            "ByAnotherDate",
            with(broken(),
                 {{"etag", nullptr}, {"headers", {{"Last-Modified", "Sat, 01 Nov 2025 10:00:00 GMT"}}}}),
            {with(part("always", 1),
                  {{"etag", nullptr}, {"headers", {{"Last-Modified", "Sun, 02 Nov 2025 10:00:00 GMT"}}}}),
             whole(1)},
            100'000,
            1,
            3}),
    [](const auto& row) { return row.param.name; });

TEST_F(LinuxDownloads, GoesOnTwiceFromOneFile) {
  serve({{"/a", {broken(), with(whole(), {{"closeAt", 150'000}}), whole()}}});
  download("/a");
  resume();
  EXPECT_EQ(errorCode(), URLErrorCode::networkConnectionLost);
  resume();
  EXPECT_TRUE(recorder->body == hostilePattern(size));
  const auto requests = server->requests();
  EXPECT_EQ(requests.at(2).from, 250'000);
}

TEST_F(LinuxDownloads, GoesOnFourTimesFromOneFile) {
  const json dying = with(whole(), {{"closeAt", 50'000}});
  serve({{"/a", {dying, dying, dying, dying, whole()}}});
  download("/a");
  for (int death = 1; death < 4; ++death) {
    EXPECT_EQ(errorCode(), URLErrorCode::networkConnectionLost);
    resume();
  }
  EXPECT_EQ(errorCode(), URLErrorCode::networkConnectionLost);
  resume();
  EXPECT_EQ(recorder->error, std::nullopt) << recorder->error->localizedDescription;
  EXPECT_TRUE(recorder->body == hostilePattern(size));
  std::int64_t served = 0;
  for (const auto& request : server->requests()) served += request.sent;
  EXPECT_EQ(served, static_cast<std::int64_t>(size)) << "bytes were fetched twice";
}

TEST_F(LinuxDownloads, GoesOnAfterAStall) {
  serve({{"/a", {with(whole(), {{"stallAt", 100'000}}), whole()}}}, json::object(), Duration{6});
  download("/a");
  EXPECT_EQ(errorCode(), URLErrorCode::timedOut);
  resume();
  EXPECT_TRUE(recorder->body == hostilePattern(size));
  EXPECT_EQ(server->requests().at(1).from, 100'000);
}

TEST_F(LinuxDownloads, RefusesPartsInAnEnvelopeForTheRest) {
  const json envelope{{"Content-Type", "multipart/byteranges; boundary=x"}};
  serve({{"/a", {broken(), with(part("always"), {{"headers", envelope}}), whole()}}});
  download("/a");
  resume();
  EXPECT_TRUE(recorder->body == hostilePattern(size));
  EXPECT_EQ(server->requests().at(2).from, std::nullopt);
}

TEST_F(LinuxDownloads, RefusesAnEncodedBodyForTheRest) {
  const json encoded{{"Content-Encoding", "gzip"}};
  serve({{"/a", {broken(), with(part("always"), {{"headers", encoded}}), whole()}}});
  download("/a");
  resume();
  EXPECT_TRUE(recorder->body == hostilePattern(size));
  EXPECT_EQ(server->requests().at(2).from, std::nullopt);
}

TEST_F(LinuxDownloads, GoesOnFromTheOldDataWhenTheSecondTryBroughtNone) {
  serve({{"/a", {broken(), {{"hangUp", true}}, whole()}}});
  download("/a");
  resume();
  EXPECT_EQ(errorCode(), URLErrorCode::networkConnectionLost);
  resume();
  EXPECT_TRUE(recorder->body == hostilePattern(size));
  EXPECT_EQ(server->requests().at(2).from, 100'000);
}

TEST_F(LinuxDownloads, KeepsItsBytesThroughAnErrorPage) {
  serve({{"/a", {broken(), {{"text", "busy"}, {"status", 503}}, whole()}}});
  download("/a");
  const auto data = *recorder->error->downloadResumeData;
  run(session->downloadTaskWithResumeData(data));
  EXPECT_EQ(recorder->status, 503);
  EXPECT_EQ(recorder->body, "busy");
  run(session->downloadTaskWithResumeData(data));
  EXPECT_TRUE(recorder->body == hostilePattern(size));
}

TEST_F(LinuxDownloads, HasNothingToResumeWithoutAStrongValidator) {
  const json weak = with(broken(), {{"etag", "W/\"1\""}});
  const json none = with(broken(), {{"etag", nullptr}});
  const json weakWithDate = with(weak, {{"headers", {{"Last-Modified", "Sat, 01 Nov 2025 10:00:00 GMT"}}}});
  const json noRanges = with(broken(), {{"headers", {{"Accept-Ranges", "none"}}}});
  const json encoded = with(whole(), {{"encoding", "gzip"}, {"closeAt", 5000}});
  for (const auto& answer : {weak, none, weakWithDate, noRanges, encoded}) {
    ended = 0;
    recorder = std::make_shared<SessionRecorder>();
    serve({{"/a", {answer}}});
    download("/a");
    EXPECT_EQ(errorCode(), URLErrorCode::networkConnectionLost);
    EXPECT_EQ(recorder->error->downloadResumeData, nullptr) << answer;
    EXPECT_THAT(temporaryFiles(), IsEmpty());
  }
}

TEST_F(LinuxDownloads, FailsAtOnceOnGarbage) {
  serve(json::object());
  for (const std::string garbage : {"", "garbage", "{}", "[]", R"({"format":"kelo-download-1"})"}) {
    run(session->downloadTaskWithResumeData(garbage));
    EXPECT_EQ(errorCode(), URLErrorCode::unknown) << garbage;
  }
  EXPECT_THAT(server->requests(), IsEmpty());
}

// Resume data that names a file which isn't a partial download must not touch it.
TEST_F(LinuxDownloads, LeavesForeignFilesAlone) {
  serve({{"/a", {broken(), whole()}}});
  download("/a");
  auto data = json::parse(*recorder->error->downloadResumeData);
  const auto victim = joined(server->settings().temporaryDirectory(), "victim");
  std::ofstream{victim} << std::string(200'000, 'v');
  data["file"] = victim;
  run(session->downloadTaskWithResumeData(data.dump()));
  EXPECT_TRUE(recorder->body == hostilePattern(size));
  EXPECT_EQ(std::filesystem::file_size(victim), 200'000U);
  EXPECT_EQ(server->requests().at(1).from, std::nullopt);
}

TEST_F(LinuxDownloads, StartsOverWhenTheFileIsGone) {
  serve({{"/a", {broken(), whole()}}});
  download("/a");
  for (const auto& name : temporaryFiles()) {
    std::filesystem::remove(joined(server->settings().temporaryDirectory(), name));
  }
  resume();
  EXPECT_TRUE(recorder->body == hostilePattern(size));
  EXPECT_EQ(server->requests().at(1).from, std::nullopt);
}

TEST_F(LinuxDownloads, RemovesWhatCouldBeResumedWithTheSession) {
  serve({{"/a", {broken()}}});
  download("/a");
  EXPECT_EQ(temporaryFiles().size(), 1U);
  session->finishTasksAndInvalidate();
  EXPECT_THAT(temporaryFiles(), IsEmpty());
}

TEST_F(LinuxDownloads, FailsAtTheLimitForTheSizeOfFiles) {
  serve({{"/a", {whole()}}});
  settleSignals();
  rlimit usual{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &usual), 0);
  const rlimit limited{.rlim_cur = 100'000, .rlim_max = usual.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
  download("/a");
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &usual), 0);
  EXPECT_EQ(errorCode(), URLErrorCode::cannotWriteToFile);
  EXPECT_THAT(temporaryFiles(), IsEmpty());
}

TEST_F(LinuxDownloads, RemovesWhatADeadProcessLeft) {
  serve(json::object());
  const auto folder = server->settings().temporaryDirectory();
  std::ofstream{joined(folder, "kelo-download-4194305-abcdef.part")} << "x";
  std::ofstream{joined(folder, "kelo-download-1-abcdef.part")} << "x";
  std::ofstream{joined(folder, "kelo-download-notes.part")} << "x";
  const auto another = makeLinuxURLSessions(server->settings());
  EXPECT_THAT(temporaryFiles(),
              ::testing::UnorderedElementsAre("kelo-download-1-abcdef.part", "kelo-download-notes.part"));
}

// Redirects.

TEST_F(LinuxDownloads, AsksBeforeEachRedirect) {
  serve({{"/a", {{{"location", "b"}}}},
         {"/b", {{{"location", "https://mirror.kelo.example/c"}, {"status", 308}}}},
         {"/c", {whole()}}});
  download("/a");
  EXPECT_THAT(recorder->redirects,
              ElementsAre("https://cdn.kelo.example/b", "https://mirror.kelo.example/c"));
  EXPECT_TRUE(recorder->body == hostilePattern(size));
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

// The body of a redirect may break off, and may never come to its end.
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

// Cancelling.

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

// Data tasks.

class LinuxDataTasks : public LinuxDownloads {
 protected:
  struct Answer {
    std::optional<std::string> data;
    std::optional<HTTPURLResponse> response;
    std::optional<Error> error;
  };

  std::future<Answer> start(const URLRequest& request) {
    const auto answered = std::make_shared<std::promise<Answer>>();
    const auto task = session->dataTask(request, [answered](auto data, auto response, auto error) {
      answered->set_value({std::move(data), std::move(response), std::move(error)});
    });
    task->resume();
    return answered->get_future();
  }
  static Answer await(std::future<Answer> answer) {
    if (answer.wait_for(patience) == std::future_status::ready) return answer.get();
    ADD_FAILURE() << "no answer came";
    return {};
  }
  Answer fetch(const URLRequest& request) { return await(start(request)); }
  Answer fetch(const std::string& path) { return fetch(URLRequest{.url = cdn(path)}); }
};

TEST_F(LinuxDataTasks, GivesBodyAndResponse) {
  serve({{"/m", {{{"text", "{}"}}}}});
  const auto answer = fetch("/m");
  EXPECT_EQ(answer.data, "{}");
  EXPECT_EQ(answer.response->statusCode, 200);
  EXPECT_EQ(answer.response->url, cdn("/m"));
  EXPECT_EQ(answer.error, std::nullopt);
}

TEST_F(LinuxDataTasks, GivesTheResponseAloneForAnEmptyBody) {
  serve({{"/m", {{{"text", ""}, {"status", 404}}}}});
  const auto answer = fetch("/m");
  EXPECT_EQ(answer.data, std::nullopt);
  EXPECT_EQ(answer.response->statusCode, 404);
}

TEST_F(LinuxDataTasks, DecodesABodyThatIsStoredCompressed) {
  serve({{"/m", {{{"text", "{}"}, {"encoding", "gzip"}}}}});
  EXPECT_EQ(fetch("/m").data, "{}");
}

TEST_F(LinuxDataTasks, GivesTheResponseAlongWithTheErrorOnceItsHeadIsThere) {
  serve({{"/m", {{{"status", 404}, {"bytes", 100}, {"closeAt", 10}}}},
         {"/n", {{{"location", "/hangUp"}}}},
         {"/hangUp", {{{"hangUp", true}}}}});
  const auto cut = fetch("/m");
  EXPECT_EQ(cut.error->code, URLErrorCode::networkConnectionLost);
  EXPECT_EQ(cut.data, std::nullopt);
  ASSERT_TRUE(cut.response);
  EXPECT_EQ(cut.response->statusCode, 404);
  const auto lost = fetch("/n");
  EXPECT_EQ(lost.error->code, URLErrorCode::networkConnectionLost);
  EXPECT_EQ(lost.response, std::nullopt) << "the redirect's answer isn't that of the place it led to";
}

TEST_F(LinuxDataTasks, AsksForTheHeadOnly) {
  serve({{"/m", {{{"bytes", size}}}}});
  const auto answer = fetch(URLRequest{.url = cdn("/m"), .method = "HEAD"});
  EXPECT_EQ(answer.data, std::nullopt);
  EXPECT_EQ(answer.response->statusCode, 200);
  EXPECT_EQ(server->requests().at(0).sent, 0);
}

TEST_F(LinuxDataTasks, NamesTheFinalPlaceAfterRedirects) {
  serve({{"/m", {{{"location", "https://mirror.kelo.example/n"}}}}, {"/n", {{{"text", "x"}}}}});
  EXPECT_EQ(fetch("/m").response->url.absoluteString(), "https://mirror.kelo.example/n");
}

TEST_F(LinuxDataTasks, MapsFailures) {
  serve({{"/hangUp", {{{"hangUp", true}}}},
         {"/garbage", {{{"garbage", true}}}},
         {"/short", {{{"bytes", 1000}, {"closeAt", 10}}}},
         {"/reset", {{{"bytes", 1000}, {"resetAt", 10}}}},
         {"/stall", {{{"bytes", 1000}, {"stallAt", 10}}}},
         {"/lengths", {{{"head", {"HTTP/1.1 200 OK\r\nContent-Length: 5\r\nContent-Length: 6\r\n\r\n"}}}}},
         {"/flood", {{{"head", {"HTTP/1.1 200 OK\r\n", {"X: 1\r\n", 100'000}}}}}},
         {"/interim",
          {{{"head", json::array({json::array({"HTTP/1.1 103 Early Hints\r\n\r\n", 100'000})})}}}}});
  EXPECT_EQ(fetch("/hangUp").error->code, URLErrorCode::networkConnectionLost);
  EXPECT_EQ(fetch("/short").error->code, URLErrorCode::networkConnectionLost);
  EXPECT_EQ(fetch("/reset").error->code, URLErrorCode::networkConnectionLost);
  const auto stalled = fetch(URLRequest{.url = cdn("/stall"), .timeoutInterval = Duration{0.2}});
  EXPECT_EQ(stalled.error->code, URLErrorCode::timedOut);
  EXPECT_THAT(stalled.error->localizedDescription, HasSubstr("0.2 seconds"));
  for (const auto* const path : {"/lengths", "/flood", "/interim"}) {
    const auto error = fetch(path).error.value_or(Error{});
    EXPECT_EQ(error.code, URLErrorCode::badServerResponse) << path << ": " << error.localizedDescription;
  }
  const auto garbage = fetch("/garbage");
  EXPECT_TRUE(garbage.error) << "taken for an answer";
  EXPECT_EQ(garbage.error->domain, ErrorDomain::url);
}

TEST_F(LinuxDataTasks, CountsSilenceNotLength) {
  serve({{"/drip", {{{"bytes", 28}, {"drip", {1, 0.2}}}}}});
  const auto answer = fetch(URLRequest{.url = cdn("/drip"), .timeoutInterval = Duration{5}});
  EXPECT_EQ(answer.error, std::nullopt);
}

TEST_F(LinuxDataTasks, SaysThatAHostCannotBeFoundAlsoWithoutAnyNetworkButItsOwn) {
  serve({{"/m", {{{"text", "{}"}}}}});
  // No name server is asked for a label that is too long for one.
  const auto nowhere = "https://" + std::string(64, 'x') + ".kelo.example/m";
  EXPECT_EQ(fetch(URLRequest{.url = *URL::parse(nowhere)}).error->code, URLErrorCode::cannotFindHost);
}

TEST_F(LinuxDataTasks, TellsAFailedHandshakeFromAConnectionThatWasLostInIt) {
  const std::vector<std::pair<std::string, std::int64_t>> rows{
      {"alert", URLErrorCode::secureConnectionFailed},
      {"plain", URLErrorCode::secureConnectionFailed},
      {"hangUp", URLErrorCode::networkConnectionLost},
      {"reset", URLErrorCode::networkConnectionLost},
  };
  for (const auto& [kind, code] : rows) {
    serve({{"/m", {{{"text", "{}"}}}}}, {{"odd.kelo.example", kind}});
    const auto answer = fetch(URLRequest{.url = *URL::parse("https://odd.kelo.example/m")});
    EXPECT_EQ(answer.error->code, code) << kind << ": " << answer.error->localizedDescription;
  }
}

TEST_F(LinuxDataTasks, RefusesACertificateForAnotherName) {
  serve({{"/m", {{{"text", "{}"}}}}}, {{"odd.kelo.example", "otherName"}});
  const auto answer = fetch(URLRequest{.url = *URL::parse("https://odd.kelo.example/m")});
  EXPECT_EQ(answer.error->code, URLErrorCode::serverCertificateUntrusted);
  EXPECT_THAT(server->requests(), IsEmpty());
}

TEST_F(LinuxDataTasks, RefusesACertificateOfAnUnknownAuthority) {
  serve({{"/m", {{{"text", "{}"}}}}}, {{"odd.kelo.example", "stranger"}});
  const auto answer = fetch(URLRequest{.url = *URL::parse("https://odd.kelo.example/m")});
  EXPECT_EQ(answer.error->code, URLErrorCode::serverCertificateUntrusted);
  EXPECT_THAT(server->requests(), IsEmpty());
}

TEST_F(LinuxDataTasks, SaysWhenNobodyListens) {
  serve({{"/m", {{{"text", "{}"}}}}});
  auto settings = server->settings();
  settings.hostAddresses["cdn.kelo.example"] = "127.0.0.1:1";
  const auto others = makeLinuxURLSessions(settings);
  session = others->make(recorder);
  EXPECT_EQ(fetch("/m").error->code, URLErrorCode::cannotConnectToHost);
  session.reset();
}

TEST_F(LinuxDataTasks, RunsManyAtOnceAndEachOnce) {
  json paths;
  for (int i = 0; i < 20; ++i) paths["/" + std::to_string(i)] = {{{"text", std::to_string(i)}}};
  serve(paths);
  std::vector<std::future<Answer>> answers;
  for (int i = 0; i < 20; ++i) answers.push_back(start(URLRequest{.url = cdn("/" + std::to_string(i))}));
  std::vector<std::string> bodies;
  for (auto& answer : answers) {
    const auto [data, response, error] = await(std::move(answer));
    bodies.push_back(error ? error->localizedDescription : data.value_or("-"));
  }
  std::ranges::sort(bodies);
  EXPECT_EQ(std::unique(bodies.begin(), bodies.end()), bodies.end()) << ::testing::PrintToString(bodies);
}

// Raw answers from pieces that readers of HTTP take differently.
class RawAnswers {
 public:
  struct Answer {
    std::string wire;
    int status;  // the one that was sent
  };

  Answer next() {
    Answer answer{.wire = "", .status = pick({200, 200, 204, 206, 302, 304, 404, 503, 101})};
    while (chance(4)) addHead(answer.wire, pick({100, 102, 103, 199}), 1);
    addHead(answer.wire, answer.status, 5);
    if (chance(12)) answer.wire.resize(answer.wire.size() - 2);
    answer.wire += pick<std::string>({"body",
                                      "body",
                                      "4\r\nbody\r\n0\r\n\r\n",
                                      "",
                                      "bo",
                                      "HTTP/1.1 200 OK\r\n\r\nbody",
                                      "4\r\nbody\r\n0\r\nHTTP/1.1 200 OK: x\r\n\r\n",
                                      "\r\n\r\n",
                                      {"\x1f\0", 2}});
    return answer;
  }

 private:
  std::mt19937 random_{1};

  template <class T>
  T pick(std::initializer_list<T> values) {
    return values.begin()[random_() % values.size()];
  }
  bool chance(unsigned one) { return random_() % one == 0; }

  void addHead(std::string& wire, int status, unsigned maximumFields) {
    const auto code = std::to_string(status);
    const auto end = pick<std::string>({"\r\n", "\r\n", "\r\n", "\n"});
    wire += pick<std::string>({"HTTP/1.1 " + code + " OK", "HTTP/1.1 " + code + " OK",
                               "HTTP/1.1  " + code + " OK", "HTTP/1.1 " + code, "HTTP/1.0 " + code + " 200",
                               "HTTP/1.1   " + code + " HTTP/1.1 200", "HTTP/2 " + code, "HTTP/1.1\t" + code,
                               " HTTP/1.1 " + code, "http/1.1 " + code, "Http/1.1 " + code, "HTTP " + code}) +
            end;
    for (auto left = random_() % (maximumFields + 1); left > 0; --left) {
      wire += pick<std::string>({"HTTP/1.1 100:x",
                                 "HTTP/1.1 200 OK:",
                                 "HTTP/1.1 200 OK: HTTP/1.1 200 OK",
                                 "Status: 200 OK",
                                 "Content-Length: 4",
                                 "Content-Length: 4",
                                 "content-length:  4 ",
                                 "Content-Length: 5",
                                 "Content-Length: 0",
                                 "Content-Length: -4",
                                 "Content-Length: 99999999999999999999",
                                 "Transfer-Encoding: chunked",
                                 "Content-Encoding: gzip",
                                 "Content-Encoding: unheard-of",
                                 "Location: https://evil.example/",
                                 "Location: data:,x",
                                 "Location: https://[/",
                                 "Location:",
                                 "Content-Range: bytes 0-3/4",
                                 "ETag: \"a\"",
                                 "X :y",
                                 ": x",
                                 " folded",
                                 "HTTP/1.1 200 OK",
                                 {"a\0b: c", 6},
                                 "Connection: close",
                                 "Connection: upgrade"}) +
              end;
    }
    wire += end;
  }
};

TEST_F(LinuxDataTasks, TakesNoRawAnswerForAnotherStatusAndReadsEachAsADownloadDoes) {
  std::vector<RawAnswers::Answer> answers;
  json paths;
  for (RawAnswers raw; answers.size() < 200; answers.push_back(raw.next())) {
  }
  for (std::size_t i = 0; i < answers.size(); ++i) {
    paths["/" + std::to_string(i)] = {{{"head", {answers[i].wire}}}};
  }
  serve(paths);
  recorder->followsRedirects = false;
  recorder->cancelsRefused = false;
  int successes = 0;
  for (std::size_t i = 0; i < answers.size(); ++i) {
    const auto path = "/" + std::to_string(i);
    SCOPED_TRACE(path + ": " + json(answers[i].wire).dump());
    const auto data = fetch(path);
    ASSERT_TRUE(data.response || data.error);
    EXPECT_EQ(data.response ? data.response->statusCode : answers[i].status, answers[i].status);
    recorder->finishes = 0;
    download(path);
    EXPECT_EQ(recorder->finishes, recorder->error ? 0 : 1);
    if (answers[i].status == 206 && !data.error) continue;  // a part that no download asked for
    EXPECT_EQ(recorder->error.has_value(), data.error.has_value());
    if (recorder->error || data.error) continue;
    EXPECT_EQ(recorder->status, answers[i].status);
    EXPECT_EQ(recorder->body, data.data.value_or(""));
    ++successes;
  }
  EXPECT_GE(successes, 40) << "too few answers are read at all to compare anything";
  session->invalidateAndCancel();
  EXPECT_THAT(temporaryFiles(), IsEmpty());
}

TEST_F(LinuxDataTasks, SharesOneSessionWithoutDelegate) {
  serve({{"/m", {{{"location", "/n"}}}}, {"/n", {{{"text", "x"}}}}});
  session = sessions->shared();
  EXPECT_EQ(sessions->shared(), session);
  EXPECT_EQ(fetch("/m").data, "x");
}

}  // namespace
}  // namespace installer::test
