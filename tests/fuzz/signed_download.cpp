#include <unistd.h>

#include <fstream>
#include <iterator>

#include "every_server.hpp"
#include "fuzz.hpp"
#include "transfer/http/file_downloader.hpp"

namespace tarnwick::fuzz {

// The private key signed only this text, and no longer exists.
static constexpr auto key =
    "-----BEGIN PUBLIC KEY-----MIIBvjCCATMGByqGSM44BAEwggEmAoGBAK+4TUan1+hjnGHB9QZsd7M0t+UcwnmO"
    "tECNB7hQqTCKc2LOA09Vu8919bcRmebvAi0wneQUVETJaZU/FGiEOVsev8PVhS0NqHQHPhsyY/D4orxkrPb2ks3X9/"
    "iuodjJO+A4e0jJzADj5s5r4dLgfLiqHKPS6SD5K7V/tLt182zPAh0A3xKDEIP9rMjv92zKW10HvEbrqm/vtX0u6Cdy"
    "dQKBgGnWFL/Unm0+gmkPoJCjguktcVyIGXRjDPpzY/OlYjL0ksA8+qPv4VMsJkUe1/sFqI18J5kILzUngLXet0fyOz"
    "ZHAec+trymL9k13JytxUuuwmPpyaiAXrQQRy/InhPHJyytST0HryAcMF0jylGebiFiPgiik5vxaYYFl62tHXJfA4GE"
    "AAKBgAmCpMLXtoe3Agfq+VD6xJ2AEYy6pZbucOgZF1Wj9LjC7Bveoq8ysXT9IkN9qDj5wwSrUEGBHzJyV87to6ERtb"
    "zbpEVN2YTr3o5YSwNU/spe7CaCVcc8mmnfSRMwkMznPGyNy5QvE9OUCzFR8+LVDNuoWZXRuOyS14mZNMYSOgU9----"
    "-END PUBLIC KEY-----";
static constexpr std::string_view signedText = "signed text\n";
static constexpr std::string_view signature =
    "MD0CHQCVJsmyDNqeU30uWsZxsn5V5e4CLTZeoDcejr1gAhw/0OrI9KwZeSNT88tsQ9yL4kYW4hlkRzlqAOSd";

/// The input is the answers to the requests for a file and its signature, and after redirects.
void tryInput(std::string_view input) {
  const std::vector<std::string> texts = splitByModel(input, '~');
  std::deque<testbed::Answer> answers;
  for (const std::string& text : texts) answers.push_back({text, text.empty()});
  everyServer().setAnswers(answers);
  HttpClient client(1000);
  DVFileDownloader downloader(client, "1", key);
  downloader.setQuiet(true);
  downloader.setVerifyWithSignature(true);
  downloader.downloadFileFromWithSignatureFileSaveToPath("http://vendor.example/file", std::nullopt,
                                                         "download");
  std::ifstream file("download", std::ios::binary);
  const std::string content{std::istreambuf_iterator<char>(file), {}};
  ::unlink("download");
  require(downloader.downloadFailed() || content == signedText, "no unsigned file is accepted");
  const std::string found = "HTTP/1.1 200 OK\r\n\r\n";
  const bool plain = texts.size() == 2 && texts[0] == found + std::string(signedText) &&
                     texts[1] == found + std::string(signature);
  require(!plain || !downloader.downloadFailed(), "a signed file is accepted");
}

}  // namespace tarnwick::fuzz
