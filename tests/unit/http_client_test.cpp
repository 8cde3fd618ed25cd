#include "transfer/http_client.hpp"

#include <gtest/gtest.h>

#include "loopback_server.hpp"
#include "scratch.hpp"
#include "transfer/file_downloader.hpp"

namespace tarnwick {
namespace {

using test::Answer;
using test::LoopbackServer;

constexpr std::uint64_t largestDownload = 100'000;

std::string ok(const std::string& headers, const std::string& body = "") {
  return "HTTP/1.1 200 OK\r\n" + headers + "\r\n" + body;
}

HttpRequest get(const std::string& url) {
  return {.url = url, .userAgent = "agent ", .idleTimeout = std::chrono::milliseconds(500)};
}

/// Status and body, or the word "error".
std::string outcome(const HttpResult& result) {
  const auto* const response = std::get_if<HttpResponse>(&result);
  return response == nullptr ? "error" : fmt::format("{} {}", response->status, response->body);
}

TEST(HttpClient, TellsWholeAnswersFromOthers) {
  const std::string closed = "Connection: close\r\n";
  const struct {
    std::string answer;
    std::string outcome;
    bool askedAgain = false;
  } cases[] = {
      {ok("Content-Length: 3\r\n", "abc"), "200 abc"},
      {ok("", "abc"), "200 abc"},
      {ok("Transfer-Encoding: chunked\r\n", "3\r\nabc\r\n0\r\nETag: x\r\n\r\n"), "200 abc"},
      {"HTTP/1.1 103 Early Hints\r\n\r\n" + ok("Content-Length: 3\r\n", "abc"), "200 abc"},
      {"HTTP/1.0 404 None\r\n\r\n", "404 "},
      {ok("Content-Length: 4\r\n", "abc"), "error"},
      {"", "error", true},
      {"HTTP/1.1 200 OK\r\n", "error"},
      {"HTTP/1.1 200 OK\r\nContent-Length: 3", "error"},
      {"HTTP/1.1 200 OK\r\nContent-Length: 3\r\nETag", "error"},
      {"HTTP/1.1 103 Early Hints\r\n\r\n", "error"},
      {ok(closed + "Content-Length: abc\r\n", "abc"), "200 abc", true},
      {ok(closed + "Content-Length: -5\r\n", "abc"), "200 abc", true},
      {ok("", std::string(HttpClient::largestText, 'a')),
       "200 " + std::string(HttpClient::largestText, 'a')},
      {ok("", std::string(HttpClient::largestText + 1, 'a')), "error"},
      {ok("Content-Length: 65537\r\n"), "error"},
  };
  for (const auto& [answer, expected, askedAgain] : cases) {
    LoopbackServer server({Answer{answer}, Answer{askedAgain ? answer : ""}});
    HttpClient client(largestDownload);
    EXPECT_EQ(outcome(client.sendSynchronousRequest(get(server.url()))), expected) << answer;
  }
}

TEST(HttpClient, BearsAFirstHeaderLineThatContinuesNoOther) {
  for (const std::string first : {" a:", "\ta:", " ", " a: b\r\n c"}) {
    LoopbackServer server({
        Answer{ok("ETag: " + std::string(50, 'a') + "\r\nContent-Length: 0\r\n"), false},
        Answer{ok(first + "\r\nContent-Length: 0\r\n")},
        Answer{ok("Content-Length: 0\r\n")},
        Answer{ok("Content-Length: 0\r\n")},
    });
    HttpClient client(largestDownload);
    std::vector<std::string> outcomes;
    for (int i = 0; i < 3; ++i) {
      outcomes.push_back(outcome(client.sendSynchronousRequest(get(server.url()))));
    }
    // What is made of such an answer differs between libcurl's versions.
    EXPECT_EQ(outcomes[0] + outcomes[2], "200 200 ") << first << outcomes[1];
  }
}

TEST(HttpClient, NamesWhatFailedWhereARedirectLed) {
  for (const std::string url : {"http://127.0.0.1:1/closed", "file:///etc/passwd"}) {
    LoopbackServer server(
        {Answer{"HTTP/1.1 302 Found\r\nContent-Length: 0\r\nLocation: " + url + "\r\n\r\n"}});
    HttpClient client(largestDownload);
    const HttpResult result = client.sendSynchronousRequest(get(server.url()));
    ASSERT_TRUE(std::holds_alternative<HttpError>(result)) << url;
    EXPECT_EQ(std::get<HttpError>(result).url, url);
  }
}

TEST(HttpClient, AsksForTheFileItself) {
  LoopbackServer server({Answer{ok("Content-Encoding: gzip\r\n", "not compressed")}});
  {
    HttpClient client(largestDownload);
    EXPECT_EQ(outcome(client.sendSynchronousRequest(get(server.url("/x")))), "200 not compressed");
  }
  const std::string request = server.end().at(0);
  EXPECT_EQ(request.substr(request.find("\r\n")),
            fmt::format("\r\nHost: {}\r\nUser-Agent: agent \r\nAccept: */*\r\nCache-Control: "
                        "no-cache\r\nPragma: no-cache\r\nAccept-Encoding: identity\r\n\r\n",
                        server.url("").substr(7)));
}

TEST(HttpClient, LeavesNothingOfAFailedDownload) {
  const std::string large(largestDownload + 1, 'a');
  for (const auto& [answer, size] : {
           std::pair{ok("", large.substr(1)), largestDownload},
           std::pair{ok("", large), std::uint64_t{0}},
           std::pair{ok("Content-Length: 100001\r\n", large), std::uint64_t{0}},
           std::pair{ok("Content-Length: 99999\r\n", "abc"), std::uint64_t{0}},
       }) {
    const test::Scratch scratch;
    LoopbackServer server({Answer{answer}});
    HttpClient client(largestDownload);
    DVFileDownloader downloader(client, "1.0");
    downloader.setQuiet(true);
    downloader.downloadFileFromSaveToPath(server.url(), scratch.path("file"));
    EXPECT_EQ(downloader.downloadFailed(), size == 0) << answer.substr(0, 50);
    EXPECT_EQ(scratch.read("file").size(), size);
    EXPECT_EQ(std::filesystem::exists(scratch.path("file")), size != 0);
  }
}

TEST(FileDownloader, CountsWhatIsDeclaredAndWhatCame) {
  const struct {
    std::string length;
    std::uint64_t total;
  } cases[] = {{"3", 3}, {"abc", 0}, {"-5", 0}, {"", 0}};
  for (const auto& [length, total] : cases) {
    const test::Scratch scratch;
    const Answer answer{
        ok(fmt::format("Content-Length: {}\r\nConnection: close\r\n", length), "abc")};
    LoopbackServer server({answer, answer});
    HttpClient client(largestDownload);
    DVFileDownloader downloader(client, "1.0");
    downloader.setQuiet(true);
    downloader.downloadFileFromSaveToPath(server.url(), scratch.path("a.zip_download"));
    EXPECT_EQ(scratch.read("a.zip_download"), "abc") << length;
    EXPECT_EQ(std::tuple(downloader.totalContentLength(), downloader.receivedContentLength(),
                         downloader.downloadFailed(), downloader.isComplete(),
                         downloader.displayFilename()),
              std::tuple(total, 3U, false, true, "a.zip"))
        << length;
  }
}

TEST(FileDownloader, CanAskForTheStatusAlone) {
  LoopbackServer server({Answer{"HTTP/1.1 410 Gone\r\nContent-Length: 7\r\n\r\n"}});
  {
    HttpClient client(largestDownload);
    DVFileDownloader downloader(client, "1.0");
    downloader.setHeaderOnly(true);
    downloader.downloadFileFromSaveToPath(server.url("/x"), "/nowhere");
    EXPECT_EQ(downloader.httpResponseCode(), 410);
  }
  EXPECT_TRUE(server.end().at(0).starts_with("HEAD /x HTTP/1.1\r\n"));
}

}  // namespace
}  // namespace tarnwick
