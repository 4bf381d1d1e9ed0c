// The host's reading of HTTP, apart from any connection.
#include <cerrno>
#include <gtest/gtest.h>

#include "Platform/Linux/CurlConnections.h"
#include "Platform/Linux/CurlErrors.h"
#include "Platform/Linux/ResponseHead.h"
#include "Platform/Linux/ResumeData.h"
#include "Platform/Linux/Validator.h"

namespace installer::test {
namespace {

ResponseHead headOf(const std::vector<std::string>& lines) {
  ResponseHead head;
  for (const auto& line : lines) head.addLine(line + "\r\n");
  return head;
}

TEST(ResponseHead, ReadsStatusAndFields) {
  const auto head = headOf({"HTTP/1.1 100 Continue", "X-Early: 1", "HTTP/1.1 206 Partial Content",
                            "ETag:  \"a b\" ", "etag: \"c\"", "Content-Length: 12"});
  EXPECT_EQ(head.status, 206);
  EXPECT_EQ(head.field("x-early"), nullptr);
  EXPECT_EQ(*head.field("etag"), "\"c\"");
  EXPECT_EQ(head.contentLength(), 12);
}

TEST(ResponseHead, ContradictsItselfWithTwoLengths) {
  const std::vector<std::pair<std::vector<std::string>, bool>> rows{
      {{"HTTP/1.1 200 OK", "Content-Length: 5"}, false},
      {{"HTTP/1.1 200 OK", "Content-Length: 5", "content-length:5 "}, false},
      {{"HTTP/1.1 200 OK", "Content-Length: 5", "Content-Length: 6"}, true},
      {{"HTTP/1.1 200 OK", "Content-Length: 6", "Content-Length: 5", "Content-Length: 6"}, true},
      {{"HTTP/1.1 103 Early", "Content-Length: 6", "Content-Length: 5", "HTTP/1.1 200 OK"}, false},
      {{"HTTP/1.1 103 Early", "Content-Length: 6", "HTTP/1.1 200 OK", "Content-Length: 5"}, false},
      {{"HTTP/1.1 200 OK", "ETag: \"a\"", "ETag: \"b\""}, false},
  };
  for (const auto& [lines, contradicts] : rows) {
    EXPECT_EQ(headOf(lines).contradictsItself(), contradicts) << ::testing::PrintToString(lines);
  }
}

TEST(ResponseHead, KnowsPartsInAnEnvelope) {
  EXPECT_TRUE(headOf({"HTTP/1.1 206 X", "Content-Type: Multipart/ByteRanges; boundary=x"}).isMultipart());
  EXPECT_FALSE(headOf({"HTTP/1.1 206 X", "Content-Type: application/x-multipart"}).isMultipart());
  EXPECT_FALSE(headOf({"HTTP/1.1 206 X"}).isMultipart());
}

TEST(ResponseHead, ReadsContentRanges) {
  const std::vector<std::pair<std::string, std::optional<ContentRange>>> rows{
      {"bytes 5-9/10", ContentRange{5, 9, 10}},
      {"bytes 0-0/1", ContentRange{0, 0, 1}},
      {"bytes 5-9/*", ContentRange{5, 9, std::nullopt}},
      {"bytes */10", std::nullopt},
      {"bytes 9-5/10", std::nullopt},
      {"bytes 5-10/10", std::nullopt},
      {"bytes -5-9/10", std::nullopt},
      {"bytes 5-9", std::nullopt},
      {"items 5-9/10", std::nullopt},
      {"bytes 5-99999999999999999999/10", std::nullopt},
      {"", std::nullopt},
  };
  for (const auto& [text, range] : rows) {
    EXPECT_EQ(headOf({"HTTP/1.1 206 OK", "Content-Range: " + text}).contentRange(), range) << text;
  }
}

TEST(ResponseHead, FindsWhereARedirectLeads) {
  const auto base = *URL::parse("https://cdn.kelo.example/a/b?q");
  const std::vector<std::tuple<int, std::string, std::string>> rows{
      {302, "https://x.example/y", "https://x.example/y"},
      {301, "/y", "https://cdn.kelo.example/y"},
      {303, "y z", "https://cdn.kelo.example/a/y%20z"},
      {307, "//x.example/y", "https://x.example/y"},
      {308, "http://x.example/", "http://x.example/"},
      {300, "/y", "-"},
      {304, "/y", "-"},
      {200, "/y", "-"},
      {302, "https://x.example:port/", "-"},
      {302, "https://[/", "-"},
  };
  for (const auto& [status, location, target] : rows) {
    const auto url =
        headOf({"HTTP/1.1 " + std::to_string(status) + " X", "Location: " + location}).redirectTarget(base);
    EXPECT_EQ(url ? url->absoluteString() : "-", target) << location;
  }
  EXPECT_EQ(headOf({"HTTP/1.1 302 X"}).redirectTarget(base), std::nullopt);
}

TEST(Validator, IsAStrongTagOrAStrongDate) {
  const std::string date = "Date: Sat, 01 Nov 2025 10:00:10 GMT";
  const std::vector<std::pair<std::vector<std::string>, std::string>> rows{
      {{"ETag: \"a\""}, "\"a\""},
      {{"ETag: \"\""}, "\"\""},
      {{"ETag: W/\"a\""}, "-"},
      {{"ETag: W/\"a\"", date, "Last-Modified: Sat, 01 Nov 2025 10:00:00 GMT"}, "-"},
      {{"ETag: a"}, "-"},
      {{"ETag: \"a\" \"b\""}, "-"},
      {{date, "Last-Modified: Sat, 01 Nov 2025 10:00:00 GMT"}, "Sat, 01 Nov 2025 10:00:00 GMT"},
      {{date, "Last-Modified: Sat, 01 Nov 2025 10:00:10 GMT"}, "-"},
      {{date, "Last-Modified: soon"}, "-"},
      {{"Last-Modified: Sat, 01 Nov 2025 10:00:00 GMT"}, "-"},
      {{}, "-"},
  };
  for (auto [lines, expected] : rows) {
    lines.insert(lines.begin(), "HTTP/1.1 200 OK");
    const auto validator = Validator::of(headOf(lines));
    EXPECT_EQ(validator ? validator->text() : "-", expected) << lines.back();
  }
}

TEST(Validator, CannotSmuggleHeaderFields) {
  EXPECT_EQ(Validator::parse("\"a\"\r\nHost: evil.example"), std::nullopt);
  EXPECT_EQ(Validator::parse("\"a\r\n\""), std::nullopt);
  EXPECT_EQ(Validator::parse(std::string("\"") + std::string(5000, 'a') + "\""), std::nullopt);
  EXPECT_EQ(Validator::parse("W/\"a\""), std::nullopt);
  EXPECT_EQ(Validator::parse(""), std::nullopt);
  EXPECT_TRUE(Validator::parse("\"a\""));
}

TEST(ResumeData, ComesBackAsItWas) {
  const ResumeData data{*URL::parse("https://cdn.kelo.example/a"), "/tmp/x", *Validator::parse("\"v\""), 700,
                        1000};
  const auto back = ResumeData::decode(data.encode());
  ASSERT_TRUE(back);
  EXPECT_EQ(back->url, data.url);
  EXPECT_EQ(back->partialFile, "/tmp/x");
  EXPECT_EQ(back->validator, data.validator);
  EXPECT_EQ(back->received, 700);
  EXPECT_EQ(back->total, 1000);
}

TEST(ResumeData, RefusesWhatItCannotHaveGiven) {
  const std::string good =
      R"({"format":"kelo-download-1","url":"https://a/b","file":"/x","validator":"\"v\"","received":7,"total":9})";
  ASSERT_TRUE(ResumeData::decode(good));
  const std::vector<std::pair<std::string, std::string>> changes{
      {"kelo-download-1", "kelo-download-2"},
      {"https://a/b", "https://a b"},
      {"\"/x\"", "7"},
      {R"("\"v\"")", R"("W/\"v\"")"},
      {R"(\"v\")", R"(\"v\"\r\nX: 1)"},
      {"\"received\":7", "\"received\":0"},
      {"\"received\":7", "\"received\":-7"},
      {"\"received\":7", "\"received\":\"7\""},
      {"\"received\":7", "\"received\":10"},
      {"\"total\":9", "\"total\":\"9\""},
      {"{\"format\"", "[{\"format\""},
  };
  for (const auto& [from, to] : changes) {
    auto text = good;
    text.replace(text.find(from), from.size(), to);
    EXPECT_FALSE(ResumeData::decode(text)) << text;
  }
  for (std::size_t length = 0; length < good.size(); ++length) {
    EXPECT_FALSE(ResumeData::decode(good.substr(0, length)));
  }
}

TEST(CurlErrors, HaveTheCodesThatTheEngineKnows) {
  struct Row {
    CURLcode code;
    long osErrno;
    bool isConnected;
    std::int64_t expected;
  };
  const std::vector<Row> rows{
      {CURLE_COULDNT_RESOLVE_HOST, 0, true, -1003},
      {CURLE_COULDNT_RESOLVE_HOST, 0, false, -1009},
      {CURLE_COULDNT_CONNECT, ECONNREFUSED, true, -1004},
      {CURLE_COULDNT_CONNECT, ENETUNREACH, true, -1009},
      {CURLE_COULDNT_CONNECT, EHOSTUNREACH, true, -1004},
      {CURLE_COULDNT_CONNECT, ETIMEDOUT, true, -1001},
      {CURLE_OPERATION_TIMEDOUT, 0, true, -1001},
      {CURLE_RECV_ERROR, 0, true, -1005},
      {CURLE_SEND_ERROR, 0, true, -1005},
      {CURLE_GOT_NOTHING, 0, true, -1005},
      {CURLE_PARTIAL_FILE, 0, true, -1005},
      {CURLE_SSL_CONNECT_ERROR, 0, true, -1200},
      {CURLE_PEER_FAILED_VERIFICATION, 0, true, -1202},
      {CURLE_TOO_MANY_REDIRECTS, 0, true, -1007},
      {CURLE_UNSUPPORTED_PROTOCOL, 0, true, -1002},
      {CURLE_URL_MALFORMAT, 0, true, -1000},
      {CURLE_COULDNT_RESOLVE_PROXY, 0, true, -1004},
      {CURLE_PROXY, 0, true, -1004},
      {CURLE_WEIRD_SERVER_REPLY, 0, true, -1011},
      {CURLE_WRITE_ERROR, 0, true, -3003},
      {CURLE_OUT_OF_MEMORY, 0, true, -1},
  };
  for (const auto& row : rows) {
    const auto error =
        urlError({.code = row.code, .osErrno = row.osErrno, .words = "words"}, row.isConnected);
    EXPECT_EQ(error.code, row.expected) << curl_easy_strerror(row.code);
    EXPECT_EQ(error.domain, ErrorDomain::url);
    EXPECT_EQ(error.localizedDescription, fmt::format("words (NSURLErrorDomain {})", row.expected));
  }
  EXPECT_NE(urlError({.code = CURLE_RECV_ERROR, .osErrno = 0, .words = ""}, true).localizedDescription, "");
}

// Whoever says where hosts lie has described the network: what isn't there isn't there.
TEST(CurlConnections, AreAClosedNetworkOnceAHostIsGivenAnAddress) {
  LinuxHostSettings settings;
  EXPECT_FALSE(CurlConnections{settings}.isClosedNetwork());
  settings.hostAddresses["cdn.kelo.example"] = "127.0.0.1:8443";
  EXPECT_TRUE(CurlConnections{settings}.isClosedNetwork());
}

TEST(CurlConnections, SayWhereAnOverriddenHostLies) {
  EXPECT_EQ(connectTo("cdn.kelo.example", "127.0.0.1:8443"), "cdn.kelo.example::127.0.0.1:8443");
  EXPECT_EQ(connectTo("cdn.kelo.example:443", "127.0.0.1"), "cdn.kelo.example:443:127.0.0.1:");
  EXPECT_EQ(connectTo("cdn.kelo.example", "[::1]:8443"), "cdn.kelo.example::[::1]:8443");
  EXPECT_EQ(connectTo("cdn.kelo.example", "::1"), "cdn.kelo.example::[::1]:");
  EXPECT_EQ(connectTo("cdn.kelo.example", "[::1]"), "cdn.kelo.example::[::1]:");
}

}  // namespace
}  // namespace installer::test
