// Raw answers, combined from pieces that parsers of HTTP read differently.
#include <random>

#include "Contract/LinuxURLSessionFixture.h"

namespace installer::test {
namespace {

using ::testing::IsEmpty;

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
    if (answers[i].status == 206 && !data.error) continue;  // an unrequested part
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

}  // namespace
}  // namespace installer::test
