// The host's parsing of HTTP, without a connection.
#include <cerrno>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Platform/Linux/HTTP/CurlConnections.h"
#include "Platform/Linux/HTTP/CurlErrors.h"
#include "Platform/Linux/HTTP/CurlLibrary.h"
#include "Platform/Linux/HTTP/ResponseHead.h"
#include "Platform/Linux/HTTP/ResumeData.h"
#include "Platform/Linux/HTTP/Validator.h"

namespace installer::test {
namespace {

ResponseHead headOf(const std::vector<std::string>& fields, int status = 200) {
  ResponseHead head;
  head.status = status;
  for (const auto& field : fields) {
    const auto colon = field.find(": ");
    head.addField(field.substr(0, colon), field.substr(colon + 2));
  }
  return head;
}

TEST(ResponseHead, FindsTheLastOfRepeatedFieldsInAnyCase) {
  const auto head = headOf({"ETag: \"a\"", "etag: \"c\""});
  EXPECT_EQ(*head.field("etag"), "\"c\"");
  EXPECT_EQ(head.field("date"), nullptr);
}

TEST(ResponseHead, KnowsAnEncodedBody) {
  EXPECT_TRUE(headOf({"Content-Encoding: gzip"}).isEncoded());
  EXPECT_TRUE(headOf({"content-encoding: BR"}).isEncoded());
  EXPECT_FALSE(headOf({"Content-Encoding: identity"}).isEncoded());
  EXPECT_FALSE(headOf({"Content-Encoding: aws-chunked"}).isEncoded());
  EXPECT_FALSE(headOf({}).isEncoded());
}

TEST(ResponseHead, ContradictsItselfWithTwoLengths) {
  const std::vector<std::pair<std::vector<std::string>, bool>> rows{
      {{"Content-Length: 5"}, false},
      {{"Content-Length: 5", "content-length: 5"}, false},
      {{"Content-Length: 5", "Content-Length: 6"}, true},
      {{"Content-Length: 6", "Content-Length: 5", "Content-Length: 6"}, true},
      {{"ETag: \"a\"", "ETag: \"b\""}, false},
  };
  for (const auto& [lines, contradicts] : rows) {
    EXPECT_EQ(headOf(lines).contradictsItself(), contradicts) << ::testing::PrintToString(lines);
  }
}

TEST(ResponseHead, KnowsTransferCodingsThatWereNotAskedFor) {
  const std::vector<std::pair<std::vector<std::string>, bool>> rows{
      {{}, false},
      {{"Transfer-Encoding: Chunked"}, false},
      {{"Transfer-Encoding: identity"}, false},
      {{"Transfer-Encoding: gzip"}, true},
      {{"Transfer-Encoding: gzip, chunked"}, true},
      {{"Transfer-Encoding: unheard-of", "Transfer-Encoding: chunked"}, true},
      {{"Content-Encoding: gzip"}, false},
  };
  for (const auto& [lines, foreign] : rows) {
    EXPECT_EQ(headOf(lines).hasForeignTransferCoding(), foreign) << ::testing::PrintToString(lines);
  }
}

TEST(ResponseHead, KnowsPartsInAnEnvelope) {
  EXPECT_TRUE(headOf({"Content-Type: Multipart/ByteRanges; boundary=x"}).isMultipart());
  EXPECT_FALSE(headOf({"Content-Type: application/x-multipart"}).isMultipart());
  EXPECT_FALSE(headOf({}).isMultipart());
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
    EXPECT_EQ(headOf({"Content-Range: " + text}).contentRange(), range) << text;
  }
}

TEST(ResponseHead, FindsWhereARedirectLeads) {
  const std::string unreadable;
  const std::vector<std::tuple<int, std::string, std::string>> rows{
      {302, "https://x.example/y", "https://x.example/y"},
      {301, "/y", "https://cdn.kelo.example/y"},
      {303, "y z", "https://cdn.kelo.example/a/y%20z"},
      {307, "//x.example/y", "https://x.example/y"},
      {308, "http://x.example/", "http://x.example/"},
      {300, "/y", "-"},
      {304, "/y", "-"},
      {200, "/y", "-"},
      {302, "https://x.example/y z", "https://x.example/y%20z"},
      {302, "y?u=a:b", "https://cdn.kelo.example/a/y?u=a:b"},
      {302, "https://x.example:port/", unreadable},
      {302, "https://x.example:99999/", unreadable},
      {302, "https://[/", unreadable},
      {302, "https://cdn.kelo.example@a@x.example/", unreadable},
      {302, "https://ex\xc3\xa4mple.example/", unreadable},
      {302, "data:text/plain,x", unreadable},
      {302, "data:a b", unreadable},
      {302, "https:y", unreadable},
      {302, "mailto:a@x.example", unreadable},
  };
  for (const auto& [status, location, target] : rows) {
    auto head = headOf({"Location: " + location}, status);
    head.url = *URL::parse("https://cdn.kelo.example/a/b?q");
    const auto url = head.redirectTarget();
    EXPECT_EQ(url ? url->absoluteString() : "-", target) << location;
  }
  EXPECT_EQ(headOf({}, 302).redirectTarget(), std::nullopt);
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
  for (const auto& [lines, expected] : rows) {
    const auto validator = Validator::of(headOf(lines));
    EXPECT_EQ(validator ? validator->text() : "-", expected) << ::testing::PrintToString(lines);
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
    std::string words = "words";
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
      {CURLE_SSL_CONNECT_ERROR, ECONNREFUSED, true, -1200},  // from an earlier address
      {CURLE_SSL_CONNECT_ERROR, ECONNRESET, true, -1005},
      {CURLE_SSL_CONNECT_ERROR, EPIPE, true, -1005},
      {CURLE_SSL_CONNECT_ERROR, 0, true, -1005, "OpenSSL SSL_connect: SSL_ERROR_SYSCALL in connection to x"},
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
        urlError({.code = row.code, .osErrno = row.osErrno, .words = row.words}, row.isConnected);
    EXPECT_EQ(error.code, row.expected) << curl().easy_strerror(row.code);
    EXPECT_EQ(error.domain, ErrorDomain::url);
    EXPECT_EQ(error.localizedDescription, fmt::format("{} (NSURLErrorDomain {})", row.words, row.expected));
  }
  EXPECT_NE(urlError({.code = CURLE_RECV_ERROR, .osErrno = 0, .words = ""}, true).localizedDescription, "");
}

// Host overrides describe the whole network: any other name doesn't exist.
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
