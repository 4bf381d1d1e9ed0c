// Downloads that resume an interrupted one.
#include <atomic>
#include <fmt/format.h>
#include <map>
#include <set>
#include <sys/resource.h>
#include <thread>

#include "Base/POSIX/ItemLock.h"
#include "Base/POSIX/ProcessStart.h"
#include "Contract/LinuxURLSessionFixture.h"
#include "Platform/Linux/HTTP/PartialFile.h"

namespace installer::test {
namespace {

using ::testing::IsEmpty;

struct Resumption {
  std::string name;
  json first;               // the interrupted answer
  std::vector<json> later;  // the answers to the resumed download
  std::int64_t from;        // the first byte of the request for the rest
  int seed = 0;             // of the expected body
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
  EXPECT_TRUE(recorder->body == hostilePattern(kBodySize, row.seed));
  EXPECT_EQ(recorder->finishes, 1);
  EXPECT_THAT(temporaryFiles(), IsEmpty());
  const auto requests = server->requests();
  ASSERT_EQ(requests.size(), static_cast<std::size_t>(row.requests));
  EXPECT_EQ(requests[1].from, row.from);
  if (row.requests == 3) {
    EXPECT_EQ(requests[2].from, std::nullopt) << "not a clean restart";
  }
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
  EXPECT_TRUE(recorder->body == hostilePattern(kBodySize));
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
  EXPECT_TRUE(recorder->body == hostilePattern(kBodySize));
  std::int64_t served = 0;
  for (const auto& request : server->requests()) served += request.sent;
  EXPECT_EQ(served, static_cast<std::int64_t>(kBodySize)) << "bytes were fetched twice";
}

TEST_F(LinuxDownloads, GoesOnAfterAStall) {
  serve({{"/a", {with(whole(), {{"stallAt", 100'000}}), whole()}}}, json::object(), Duration{6});
  download("/a");
  EXPECT_EQ(errorCode(), URLErrorCode::timedOut);
  resume();
  EXPECT_TRUE(recorder->body == hostilePattern(kBodySize));
  EXPECT_EQ(server->requests().at(1).from, 100'000);
}

TEST_F(LinuxDownloads, RefusesPartsInAnEnvelopeForTheRest) {
  const json envelope{{"Content-Type", "multipart/byteranges; boundary=x"}};
  serve({{"/a", {broken(), with(part("always"), {{"headers", envelope}}), whole()}}});
  download("/a");
  resume();
  EXPECT_TRUE(recorder->body == hostilePattern(kBodySize));
  EXPECT_EQ(server->requests().at(2).from, std::nullopt);
}

TEST_F(LinuxDownloads, RefusesAnEncodedBodyForTheRest) {
  const json encoded{{"Content-Encoding", "gzip"}};
  serve({{"/a", {broken(), with(part("always"), {{"headers", encoded}}), whole()}}});
  download("/a");
  resume();
  EXPECT_TRUE(recorder->body == hostilePattern(kBodySize));
  EXPECT_EQ(server->requests().at(2).from, std::nullopt);
}

TEST_F(LinuxDownloads, GoesOnFromTheOldDataWhenTheSecondTryBroughtNone) {
  serve({{"/a", {broken(), {{"hangUp", true}}, whole()}}});
  download("/a");
  resume();
  EXPECT_EQ(errorCode(), URLErrorCode::networkConnectionLost);
  resume();
  EXPECT_TRUE(recorder->body == hostilePattern(kBodySize));
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
  EXPECT_TRUE(recorder->body == hostilePattern(kBodySize));
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

// Resume data with the path of a file that isn't a partial download must not change that file.
TEST_F(LinuxDownloads, LeavesForeignFilesAlone) {
  serve({{"/a", {broken(), whole()}}});
  download("/a");
  auto data = json::parse(*recorder->error->downloadResumeData);
  const auto victim = joined(server->settings().temporaryDirectory(), "victim");
  std::ofstream{victim} << std::string(200'000, 'v');
  data["file"] = victim;
  run(session->downloadTaskWithResumeData(data.dump()));
  EXPECT_TRUE(recorder->body == hostilePattern(kBodySize));
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
  EXPECT_TRUE(recorder->body == hostilePattern(kBodySize));
  EXPECT_EQ(server->requests().at(1).from, std::nullopt);
}

TEST_F(LinuxDownloads, RemovesWhatCouldBeResumedWithTheSession) {
  serve({{"/a", {broken()}}});
  download("/a");
  EXPECT_EQ(temporaryFiles().size(), 1U);
  session->finishTasksAndInvalidate();
  EXPECT_THAT(temporaryFiles(), IsEmpty());
}

// In the middle of a body, in its last bytes, and in the last ones before a lost connection.
TEST_F(LinuxDownloads, FailsAtTheLimitForTheSizeOfFiles) {
  serve({{"/middle", {whole()}}, {"/last", {whole()}}, {"/lost", {broken()}}});
  settleSignals();
  rlimit usual{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &usual), 0);
  const std::map<std::string, rlim_t> limits{
      {"/middle", 100'000}, {"/last", kBodySize - 1}, {"/lost", 50'000}};
  for (const auto& [path, bytes] : limits) {
    const rlimit limited{.rlim_cur = bytes, .rlim_max = usual.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
    recorder->error.reset();
    download(path);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &usual), 0);
    EXPECT_EQ(errorCode(), URLErrorCode::cannotWriteToFile) << path;
    EXPECT_THAT(temporaryFiles(), IsEmpty()) << path;
  }
}

// The number of the first process, which lives, and one that no process has.
TEST_F(LinuxDownloads, RemovesWhatADeadProcessLeftUnderAnyProcessNumber) {
  serve(json::object());
  const auto folder = server->settings().temporaryDirectory();
  for (const char* const name : {"1-unlock", "1-locked", "4194305-unlock", "4194305-locked", "notes"}) {
    std::ofstream{fmt::format("{}/kelo-download-{}.part", folder, name)} << "x";
  }
  const auto first = ItemLock::tryTake(joined(folder, "kelo-download-1-locked.part"));
  const auto second = ItemLock::tryTake(joined(folder, "kelo-download-4194305-locked.part"));
  const auto another = makeLinuxURLSessions(server->settings());
  EXPECT_THAT(temporaryFiles(), ::testing::UnorderedElementsAre("kelo-download-1-locked.part",
                                                                "kelo-download-4194305-locked.part",
                                                                "kelo-download-notes.part"));
}

// The lock lasts through the pause before a retry.
TEST_F(LinuxDownloads, KeepsItsInterruptedDownloadFromAnotherEngine) {
  serve({{"/a", {broken(), whole()}}});
  download("/a");
  const auto another = makeLinuxURLSessions(server->settings());
  resume();
  EXPECT_EQ(server->requests().at(1).from, 100'000);
}

TEST_F(LinuxDownloads, KeepsItsCompleteDownloadFromAnotherEngine) {
  serve({{"/a", {whole()}}});
  recorder->beforeReading = [&] { (void)makeLinuxURLSessions(server->settings()); };
  download("/a");
  EXPECT_TRUE(recorder->body == hostilePattern(kBodySize));
}

// Engines that start remove orphans while this one creates files.
TEST_F(LinuxDownloads, LosesNoNewFileToAnotherEngine) {
  serve(json::object());
  const auto folder = server->settings().temporaryDirectory();
  std::atomic<bool> ends{false};
  std::thread others{[&] {
    while (!ends) PartialFile::removeOrphans(folder);
  }};
  std::set<Path> lost;
  for (int number = 0; number < 2000; ++number) {
    const auto file = PartialFile::create(folder);
    ASSERT_TRUE(file) << file.error().localizedDescription;
    if (!std::filesystem::exists((*file)->path())) lost.insert((*file)->path());
    (*file)->remove();
  }
  ends = true;
  others.join();
  EXPECT_THAT(lost, IsEmpty());
}

}  // namespace
}  // namespace installer::test
