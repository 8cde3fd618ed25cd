#include <cstring>

#include "fuzz.hpp"
#include "vendor/container_archive.hpp"

namespace tarnwick::fuzz {

/// The words that a shell reads, with "quoted" for the header; nothing if a quote is left open.
/// Where the shell would interpret a character, the words contain "interpreted".
static std::optional<std::vector<std::string>> wordsByModel(std::string_view command,
                                                            std::string_view header) {
  std::vector<std::string> words(1);
  bool quoted = false;
  for (std::size_t i = 0; i < command.size(); ++i) {
    const char c = command[i];
    const char next = i + 1 < command.size() ? command[i + 1] : '\0';
    if (c == '"') {
      quoted = !quoted;
    } else if (quoted && c == '\\' && next != '\0' && std::strchr("$`\"\\\n", next) != nullptr) {
      if (next != '\n') words.back() += next;
      ++i;
    } else if (quoted ? c == '$' || c == '`' : std::strchr("$`\\;&<(){}*?[]#~!'\n", c) != nullptr) {
      words.emplace_back("interpreted");
    } else if (!quoted && c == ' ') {
      words.emplace_back();
    } else {
      words.back() += c;
    }
  }
  if (quoted) return std::nullopt;
  if (words.size() > 1 && words[1] == header) words[1] = "quoted";
  return words;
}

/// The input is the header of a new container, which comes from an unsigned one.
void tryInput(std::string_view input) {
  const auto command = joinCommand(input, "/tmp/a/archive", "/tmp/a/container");
  if (!command) return;
  const std::string header = std::string(input).c_str();
  auto words = wordsByModel(command->c_str(), header);
  if (!words) return;
  if (header.find('\\') != header.npos && words->size() > 1) (*words)[1] = "quoted";
  const std::vector<std::string> expected{
      "/usr/bin/printf", "quoted", "|", "cat", "-", "/tmp/a/archive", ">", "/tmp/a/container"};
  require(words == expected, "the header stays one word");
}

}  // namespace tarnwick::fuzz
