#include <unistd.h>

#include "base/text_rules.hpp"
#include "every_server.hpp"
#include "fuzz.hpp"
#include "transfer/http/file_downloader.hpp"

namespace tarnwick::fuzz {

/// The input is the answers to the requests, in their order.
void tryInput(std::string_view input) {
  std::deque<testbed::Answer> answers;
  for (const std::string& text : splitByModel(input, '~')) answers.push_back({text, text.empty()});
  everyServer().setAnswers(answers);
  HttpClient client(1000);
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
  require(
      charactersByModel(textIn(client.sendSynchronousRequest(request)).value_or("")).has_value(),
      "a text");
}

}  // namespace tarnwick::fuzz
