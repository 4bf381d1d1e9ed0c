// Data tasks: bodies, failures, certificates, many at once.
#include "Contract/LinuxURLSessionFixture.h"

namespace installer::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

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
  serve({{"/m", {{{"bytes", kBodySize}}}}});
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
         {"/coding", {{{"head", {"HTTP/1.1 200 OK\r\nTransfer-Encoding: unheard-of\r\n\r\n"}}}}},
         {"/line",
          {{{"head",
             {"HTTP/1.1 100 Continue\r\n\rX\r\nhttp/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n"}}}}},
         {"/return", {{{"head", {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r5\r\n\r\n0\r\n\r\n"}}}}},
         {"/flood", {{{"head", {"HTTP/1.1 200 OK\r\n", {"X: 1\r\n", 100'000}}}}}},
         {"/interim",
          {{{"head", json::array({json::array({"HTTP/1.1 103 Early Hints\r\n\r\n", 100'000})})}}}}});
  EXPECT_EQ(fetch("/hangUp").error->code, URLErrorCode::networkConnectionLost);
  EXPECT_EQ(fetch("/short").error->code, URLErrorCode::networkConnectionLost);
  EXPECT_EQ(fetch("/reset").error->code, URLErrorCode::networkConnectionLost);
  const auto stalled = fetch(URLRequest{.url = cdn("/stall"), .timeoutInterval = Duration{0.2}});
  EXPECT_EQ(stalled.error->code, URLErrorCode::timedOut);
  EXPECT_THAT(stalled.error->localizedDescription, HasSubstr("0.2 seconds"));
  for (const auto* const path : {"/lengths", "/coding", "/line", "/return", "/flood", "/interim"}) {
    const auto error = fetch(path).error.value_or(Error{});
    EXPECT_EQ(error.code, URLErrorCode::badServerResponse) << path << ": " << error.localizedDescription;
  }
  const auto garbage = fetch("/garbage");
  EXPECT_TRUE(garbage.error) << "treated as an answer";
  EXPECT_EQ(garbage.error->domain, ErrorDomain::url);
}

TEST_F(LinuxDataTasks, CountsSilenceNotLength) {
  serve({{"/drip", {{{"bytes", 28}, {"drip", {1, 0.2}}}}}});
  const auto answer = fetch(URLRequest{.url = cdn("/drip"), .timeoutInterval = Duration{5}});
  EXPECT_EQ(answer.error, std::nullopt);
}

TEST_F(LinuxDataTasks, SaysThatAHostCannotBeFoundAlsoWithoutAnyNetworkButItsOwn) {
  serve({{"/m", {{{"text", "{}"}}}}});
  // The label is too long for DNS, so no name server is asked.
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

TEST_F(LinuxDataTasks, SharesOneSessionWithoutDelegate) {
  serve({{"/m", {{{"location", "/n"}}}}, {"/n", {{{"text", "x"}}}}});
  session = sessions->shared();
  EXPECT_EQ(sessions->shared(), session);
  EXPECT_EQ(fetch("/m").data, "x");
}

}  // namespace
}  // namespace installer::test
