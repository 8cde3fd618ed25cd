#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <thread>

#include "base/file_descriptor.hpp"
#include "base/text_rules.hpp"
#include "fuzz.hpp"
#include "transfer/file_downloader.hpp"
#include "transfer/http_client.hpp"

namespace tarnwick::fuzz {

static std::mutex mutex;
static std::vector<std::string> answers;  ///< those that are left; the last is the next

static std::string nextAnswer() {
  const std::lock_guard lock(mutex);
  if (answers.empty()) return {};
  const std::string answer = answers.back();
  answers.pop_back();
  return answer;
}

static void setAnswers(const std::vector<std::string>& texts) {
  const std::lock_guard lock(mutex);
  answers.assign(texts.rbegin(), texts.rend());
}

/// Answers as long as requests come at once. A client that waits for more than it got sends none,
/// and is told by the end of the connection.
static void converse(const FileDescriptor& connection) {
  constexpr int patience = 2;  // milliseconds
  pollfd asked{.fd = connection.get(), .events = POLLIN, .revents = 0};
  char request[8192];
  while (::poll(&asked, 1, patience) == 1 &&
         ::recv(connection.get(), request, sizeof request, 0) > 0) {
    const std::string answer = nextAnswer();
    if (answer.empty()) return;
    ::send(connection.get(), answer.data(), answer.size(), MSG_NOSIGNAL);
  }
}

/// Starts what stands for every server there is: it is the user's proxy, so that a request comes
/// here whatever address an answer leads to.
static bool startServer() {
  static const FileDescriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  socklen_t length = sizeof address;
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  require(::bind(listener.get(), any, length) == 0 && ::listen(listener.get(), 8) == 0 &&
              ::getsockname(listener.get(), any, &length) == 0,
          "there is a port");
  const std::string proxy = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
  for (const char* name : {"http_proxy", "https_proxy"}) ::setenv(name, proxy.c_str(), 1);
  for (const char* name : {"no_proxy", "NO_PROXY"}) ::unsetenv(name);
  std::thread([] {
    for (;;) converse(FileDescriptor(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC)));
  }).detach();
  return true;
}

/// The answers, one after the other, to the requests of a run.
void tryInput(std::string_view input) {
  [[maybe_unused]] static const bool started = startServer();
  setAnswers(splitByModel(input, '~'));
  constexpr std::uint64_t largest = 1000;
  HttpClient client(largest);
  HttpRequest request{.url = "http://vendor.example/file",
                      .userAgent = "fuzz",
                      .idleTimeout = std::chrono::seconds(5)};
  for (const char* const method : {"GET", "HEAD"}) {
    request.method = method;
    const auto result = client.sendSynchronousRequest(request);
    const auto* const response = std::get_if<HttpResponse>(&result);
    if (response == nullptr) continue;
    for (const auto& [name, value] : response->headers) {
      require(name.find_first_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ:") == name.npos, "a header's name");
      require(value == stripped(value, " \t\r\n"), "a header's value has no blanks around it");
    }
  }
  DVFileDownloader downloader(client, "1");
  downloader.setQuiet(true);
  downloader.downloadFileFromSaveToPath(request.url, "download");
  require((::unlink("download") == 0) != downloader.downloadFailed(), "a file or a failure");
  request.method = "GET";
  require(charactersByModel(client.fetchText(request).value_or("")).has_value(), "a text");
}

}  // namespace tarnwick::fuzz
