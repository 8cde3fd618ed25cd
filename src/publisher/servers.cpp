#include "publisher/servers.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <system_error>

#include "base/text_rules.hpp"
#include "publisher/disk.hpp"
#include "publisher/refusal.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

/// A name of a user or a host, which no program could take for an option.
bool isName(std::string_view text) {
  constexpr std::string_view first =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_";
  constexpr std::string_view rest =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.-";
  return !text.empty() && first.find(text.front()) != std::string_view::npos &&
         text.find_first_not_of(rest) == std::string_view::npos;
}

/// The host of [USER@]HOST:FOLDER; none for what is no such thing.
std::optional<std::string> hostOf(std::string_view place) {
  const std::size_t colon = place.find(':');
  if (colon == std::string_view::npos) return std::nullopt;
  std::string_view host = place.substr(0, colon);
  const std::string_view folder = place.substr(colon + 1);
  const std::size_t at = host.find('@');
  if (at != std::string_view::npos) {
    if (!isName(host.substr(0, at))) return std::nullopt;
    host.remove_prefix(at + 1);
  }
  if (!isName(host) || folder.empty() || folder.front() == ':') return std::nullopt;
  return std::string(host);
}

/// Takes the URL off the end of SERVER=https://...
std::string takeUrl(std::string& place) {
  constexpr std::string_view mark = "=https://";
  const std::size_t start = place.rfind('=');
  if (start == std::string::npos || start == 0 || !place.substr(start).starts_with(mark)) return {};
  std::string url = place.substr(start + 1);
  place.resize(start);
  return url;
}

bool holdsWhatRsyncReads(std::string_view place) {
  constexpr char firstPrintable = 0x20;
  constexpr char rubout = 0x7F;
  return std::ranges::any_of(place, [](char c) {
    return (c >= 0 && c < firstPrintable) || c == rubout ||
           std::string_view("[]*?\\~").find(c) != std::string_view::npos;
  });
}

bool isInHome(const std::string& place, const Home& home) {
  if (!place.starts_with('/')) return false;
  std::error_code ignored;
  const std::string path = fs::weakly_canonical(place, ignored).string() + "/";
  return path.starts_with(home.folder.string() + "/");
}

PushServer serverOf(const std::string& word, const Home& home) {
  PushServer server{.place = word, .url = {}};
  server.url = takeUrl(server.place);
  const std::string& place = server.place;
  if (const auto host = hostOf(place)) {
    if (server.url.empty()) server.url = "https://" + *host;
  } else if (!place.starts_with('/')) {
    throw Misuse(fmt::format("push: \"{}\" is neither HOST:FOLDER nor /FOLDER", place));
  }
  if (holdsWhatRsyncReads(place)) {
    throw Misuse(fmt::format("push: \"{}\" holds a character that rsync reads differently", place));
  }
  if (isInHome(place, home)) {
    throw Misuse(fmt::format("push: \"{}\" is in the home itself", place));
  }
  return server;
}

std::vector<std::string> listedIn(const Home& home) {
  std::vector<std::string> words;
  const std::string text = contentOf(home.pushServers).value_or("");
  for (const std::string_view line : split(text, '\n')) {
    const std::string_view word = stripped(line, " \t\r");
    if (!word.empty() && word.front() != '#') words.emplace_back(word);
  }
  return words;
}

}  // namespace

std::vector<PushServer> serversOf(const std::vector<std::string>& words, const Home& home) {
  std::vector<PushServer> servers;
  for (const std::string& word : words.empty() ? listedIn(home) : words) {
    PushServer server = serverOf(word, home);
    if (std::ranges::find(servers, server.place, &PushServer::place) != servers.end()) {
      throw Misuse(fmt::format("push: \"{}\" is named twice", server.place));
    }
    servers.push_back(std::move(server));
  }
  if (servers.empty()) {
    throw Misuse(
        fmt::format("push needs a SERVER, or a list of them in {}", home.pushServers.string()));
  }
  return servers;
}

}  // namespace tarnwick::publisher
