#include "transfer/http/http_client.hpp"

#include <gtest/gtest.h>

#include "testbed/loopback_server.hpp"
#include "testbed/scratch.hpp"
#include "transfer/http/answer_limits.hpp"
#include "transfer/http/authorities.hpp"
#include "transfer/http/file_downloader.hpp"

namespace tarnwick {
namespace {

using testbed::Answer;
using testbed::LoopbackServer;

constexpr std::uint64_t largestDownload = 100'000;

std::string ok(const std::string& headers, const std::string& body = "") {
  return "HTTP/1.1 200 OK\r\n" + headers + "\r\n" + body;
}

HttpRequest requestFor(const std::string& url) {
  return {.url = url, .userAgent = "agent ", .idleTimeout = std::chrono::seconds(30)};
}

HttpResult get(HttpClient& client, const std::string& url) {
  return client.sendSynchronousRequest(requestFor(url));
}

/// Status and body, or the word "error".
std::string outcome(const HttpResult& result) {
  const auto* const response = std::get_if<HttpResponse>(&result);
  return response == nullptr ? "error" : fmt::format("{} {}", response->status, response->body);
}

TEST(HttpClient, RefusesIncompleteAnswers) {
  const std::string closed = "Connection: close\r\n";
  const std::string longest(HttpClient::largestText, 'a');
  const struct {
    std::string answer;
    std::string outcome;
    bool askedAgain = false;
  } cases[] = {
      {ok("", "abc"), "200 abc"},
      {ok("Transfer-Encoding: chunked\r\n", "3\r\nabc\r\n0\r\nETag: x\r\n\r\n"), "200 abc"},
      {ok("Transfer-Encoding: chunked\r\n", "3\r\nabc\r\n0\r\nHTTP/x: y\r\n\r\n"), "200 abc"},
      {"HTTP/1.1 103 Early Hints\r\n\r\n" + ok("Content-Length: 3\r\n", "abc"), "200 abc"},
      {"HTTP/1.0 404 None\r\n\r\n", "404 "},
      {ok("Content-Length: 4\r\n", "abc"), "error"},
      {"", "error", true},
      {"HTTP/1.1 200 OK\r\n", "error"},
      {"HTTP/1.1 200 OK\r\nContent-Length: 3", "error"},
      {"HTTP/1.1 103 Early Hints\r\n\r\n", "error"},
      {ok(closed + "Content-Length: abc\r\n", "abc"), "200 abc", true},
      {ok(closed + "Content-Length: -5\r\n", "abc"), "200 abc", true},
      {ok("", longest), "200 " + longest},
      {ok("", longest + 'a'), "error"},
      {ok("Content-Length: 65537\r\n"), "error"},
  };
  for (const auto& [answer, expected, askedAgain] : cases) {
    LoopbackServer server({Answer{answer}, Answer{askedAgain ? answer : ""}});
    HttpClient client(largestDownload);
    EXPECT_EQ(outcome(get(client, server.url())), expected) << answer;
  }
}

TEST(HttpClient, AcceptsAFirstHeaderLineThatBeginsWithABlank) {
  const Answer last{ok("Content-Length: 0\r\n")};
  for (const std::string first : {" a:", "\ta:", " ", " a: b\r\n c"}) {
    LoopbackServer server(
        {Answer{ok("ETag: " + std::string(50, 'a') + "\r\nContent-Length: 0\r\n"), false},
         Answer{ok(first + "\r\nContent-Length: 0\r\n")}, last, last});
    HttpClient client(largestDownload);
    EXPECT_EQ(outcome(get(client, server.url())), "200 ") << first;
    get(client, server.url());  // its result differs between versions of libcurl
    EXPECT_EQ(outcome(get(client, server.url())), "200 ") << first;
  }
}

TEST(HttpClient, NamesTheTargetOfARedirectThatFails) {
  for (const std::string url : {"http://127.0.0.1:1/closed", "file:///etc/passwd"}) {
    LoopbackServer server({Answer{"HTTP/1.1 302 Found\r\nLocation: " + url + "\r\n\r\n"}});
    HttpClient client(largestDownload);
    const HttpResult result = get(client, server.url());
    ASSERT_TRUE(std::holds_alternative<HttpError>(result)) << url;
    EXPECT_EQ(std::get<HttpError>(result).url, url);
  }
}

TEST(HttpClient, FollowsSixteenRedirects) {
  for (const std::size_t redirects : {16U, 17U}) {
    std::deque<Answer> answers(redirects, Answer{"HTTP/1.1 302 Found\r\nLocation: /\r\n\r\n"});
    answers.push_back({ok("", "abc")});
    LoopbackServer server(answers);
    HttpClient client(largestDownload);
    EXPECT_EQ(outcome(get(client, server.url())), redirects == 16 ? "200 abc" : "error");
  }
}

TEST(AnswerLimits, LimitBytesAndTime) {
  using std::chrono::minutes;
  constexpr std::uint64_t headers = AnswerLimits::largestHeaders;
  const AnswerLimits::Clock::time_point begun;
  const struct {
    std::uint64_t body, headers, received;
    int bodyAt, now;
    bool textMayGoOn, fileMayGoOn;
  } cases[] = {
      {1000, headers, headers + 17'000, 0, 0, true, true},
      {1000, 0, headers + 17'001, 0, 0, false, false},
      {1000, headers + 1, 0, 0, 0, false, false},
      {1001, 0, 0, 0, 0, false, false},
      {0, 0, 0, 0, 10, true, true},
      {0, 0, 0, 0, 11, false, false},
      {1, 0, 0, 9, 11, false, true},
      {1, 0, 0, 9, 20, false, false},
  };
  for (const auto& row : cases) {
    for (const AnswerKind kind : {AnswerKind::text, AnswerKind::file}) {
      AnswerLimits limits(kind, 1000, begun);
      if (row.body > 0) limits.countBody(row.body, begun + minutes(row.bodyAt));
      limits.countHeaderLine(row.headers);
      limits.countReceived(row.received);
      EXPECT_EQ(!limits.exceeded(begun + minutes(row.now)),
                kind == AnswerKind::text ? row.textMayGoOn : row.fileMayGoOn)
          << &row - cases;
    }
  }
}

void forgetTheUsersAuthorities() {
  for (const char* const name : {"CURL_CA_BUNDLE", "SSL_CERT_FILE", "SSL_CERT_DIR"}) {
    ::unsetenv(name);
  }
}

TEST(Authorities, AreReadFromAHashedFolderThatHasEveryCertificate) {
  const std::string one = "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n";
  const struct {
    std::string bundle;
    std::vector<std::string> names;
    int secondsLater = 0;  // that the bundle was changed
    bool fromFolder = false;
  } cases[] = {
      {one, {"0123abcd.0"}, 0, true},
      {one + one, {"0123abcd.0", "0123abcd.1", "89abcdef.10"}, 0, true},
      {one, {"0123abcd.0"}, 1},
      {one + one, {"0123abcd.0", "0123abcd.r0", "0123abcg.0", "0123abcd.", "one.pem"}},
      {one, {}},
      {"", {"0123abcd.0"}},
  };
  forgetTheUsersAuthorities();
  for (const auto& row : cases) {
    const testbed::Scratch scratch;
    const std::string bundle = scratch.write("bundle.crt", row.bundle);
    for (const std::string& name : row.names) {
      std::filesystem::create_symlink("bundle.crt", scratch.path(name));
    }
    const std::string folder = scratch.path(".");
    std::filesystem::create_symlink("gone.pem", scratch.path("ffffffff.0"));
    std::filesystem::last_write_time(
        bundle, std::filesystem::last_write_time(folder) + std::chrono::seconds(row.secondsLater));
    const Authorities chosen = chooseAuthorities({.bundle = bundle, .folder = folder});
    EXPECT_EQ(chosen.bundle.has_value(), !row.fromFolder) << &row - cases;
    EXPECT_EQ(chosen.folder.has_value(), row.fromFolder) << &row - cases;
  }
}

TEST(Authorities, AreTheUsersFirst) {
  const struct {
    const char *curlBundle, *bundle, *folder;
    std::string expected;
  } cases[] = {{"a", "b", "c", "a c"}, {"", "b", "", "b folder"}, {"", "", "c", "bundle c"}};
  for (const auto& row : cases) {
    ::setenv("CURL_CA_BUNDLE", row.curlBundle, 1);
    ::setenv("SSL_CERT_FILE", row.bundle, 1);
    ::setenv("SSL_CERT_DIR", row.folder, 1);
    const Authorities chosen = chooseAuthorities({.bundle = "bundle", .folder = "folder"});
    EXPECT_EQ(chosen.bundle.value_or("none") + ' ' + chosen.folder.value_or("none"), row.expected);
  }
  forgetTheUsersAuthorities();
}

TEST(HttpClient, ReportsADownloadEvenIfItsFileCannotBeMade) {
  const testbed::Scratch scratch;
  for (const std::string body : {"", "x"}) {
    for (const std::string name : {"file", "none/file"}) {
      LoopbackServer server(
          {Answer{"HTTP/1.1 302 Found\r\nLocation: /there\r\n\r\n"}, Answer{ok("", body)}});
      HttpClient client(largestDownload);
      std::string told;
      const HttpResult result =
          client.download(requestFor(server.url("/here")), scratch.path(name),
                          {[&](const HttpResponse&) { told += "response"; },
                           [&](auto length) { told += fmt::format(" {}", length); }});
      const auto* const error = std::get_if<HttpError>(&result);
      EXPECT_EQ(error != nullptr ? error->url : "", name == "file" ? "" : server.url("/there"));
      EXPECT_EQ(told, name == "file" && !body.empty() ? "response 1" : "response");
    }
  }
}

TEST(HttpClient, RequestsTheFileItselfWithoutCompressionOrCaches) {
  LoopbackServer server({Answer{ok("Content-Encoding: gzip\r\n", "not compressed")}});
  HttpClient client(largestDownload);
  EXPECT_EQ(outcome(get(client, server.url("/x"))), "200 not compressed");
  EXPECT_EQ(server.request(),
            fmt::format("GET /x HTTP/1.1\r\nHost: {}\r\nUser-Agent: agent \r\nAccept: */*\r\n"
                        "Cache-Control: no-cache\r\nPragma: no-cache\r\n"
                        "Accept-Encoding: identity\r\n\r\n",
                        server.url().substr(7)));
}

TEST(FileDownloader, CountsReceivedBytesAndDeletesAFailedDownload) {
  const std::string large(largestDownload + 1, 'a');
  const struct {
    std::string length, body;
    std::uint64_t total, size;
  } cases[] = {{"3", "abc", 3, 3},        {"abc", "abc", 0, 3},
               {"-5", "abc", 0, 3},       {"", large.substr(1), 0, largestDownload},
               {"", large, 0, 0},         {"100001", large, 100001, 0},
               {"99999", "abc", 99999, 0}};
  for (const auto& [length, body, total, size] : cases) {
    const testbed::Scratch scratch;
    const Answer answer{
        ok(fmt::format("Content-Length: {}\r\nConnection: close\r\n", length), body)};
    LoopbackServer server({answer, answer});
    HttpClient client(largestDownload);
    DVFileDownloader downloader(client, "1.0");
    downloader.setQuiet(true);
    downloader.downloadFileFromSaveToPath(server.url(), scratch.path("a.zip_download"));
    EXPECT_EQ(downloader.downloadFailed(), size == 0) << length;
    EXPECT_EQ(scratch.read("a.zip_download"), size == 0 ? "" : body);
    EXPECT_EQ(std::filesystem::exists(scratch.path("a.zip_download")), size != 0) << length;
    if (size == 0) continue;
    EXPECT_EQ(std::tuple(downloader.totalContentLength(), downloader.receivedContentLength(),
                         downloader.isComplete(), downloader.displayFilename()),
              std::tuple(total, size, true, "a.zip"));
  }
}

TEST(FileDownloader, LogsNoToken) {
  const std::string elsewhere = "http://127.0.0.1:1/token/1/x?y";
  const std::string leadsElsewhere = "HTTP/1.1 302 Found\r\nLocation: " + elsewhere + "\r\n\r\n";
  const std::string isGone = "HTTP/1.1 410 Gone\r\nContent-Length: 0\r\n\r\n";
  for (const std::string& answer : {std::string(), leadsElsewhere, isGone}) {
    const testbed::Scratch scratch;
    LoopbackServer server({Answer{answer}, Answer{""}});
    HttpClient client(largestDownload);
    DVFileDownloader downloader(client, "1.0");
    const LinkMaker link = [&] { return Link{server.url("/token/1/file"), "/token/1"}; };
    testing::internal::CaptureStderr();
    downloader.downloadFileFromWithSignatureFileSaveToPath(link, link, scratch.path("file"));
    const std::string logged = testing::internal::GetCapturedStderr();
    const std::string shown =
        answer == leadsElsewhere ? "http://127.0.0.1:1/x?y\n" : server.url("/file\n");
    EXPECT_TRUE(logged.ends_with(shown)) << logged;
  }
}

TEST(FileDownloader, CanRequestTheHeadersAlone) {
  LoopbackServer server({Answer{"HTTP/1.1 410 Gone\r\nContent-Length: 7\r\n\r\n"}});
  HttpClient client(largestDownload);
  DVFileDownloader downloader(client, "1.0");
  downloader.setHeaderOnly(true);
  downloader.downloadFileFromSaveToPath(server.url("/x"), "/nowhere");
  EXPECT_EQ(downloader.httpResponseCode(), 410);
  EXPECT_TRUE(server.request().starts_with("HEAD /x HTTP/1.1\r\n"));
}

}  // namespace
}  // namespace tarnwick
