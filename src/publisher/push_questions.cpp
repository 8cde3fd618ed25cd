#include "publisher/push_questions.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "publisher/at_once.hpp"
#include "publisher/copy_to_server.hpp"
#include "publisher/disk.hpp"
#include "publisher/published.hpp"
#include "publisher/served_check.hpp"
#include "publisher/served_files.hpp"
#include "transfer/signing/dsa_verifier.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

constexpr auto container = "VestRUM.cud";

/// What a server has of the container: by HTTPS, or in a folder here.
struct ThereAlready {
  std::int64_t version = 0;
  std::optional<std::string> container;  ///< only where it is of the version here, and another
  std::string signature;
};

ThereAlready askServer(const PushServer& server, const PushIntent& intent) {
  Findings unheard;
  ServedFiles files(intent.home, intent.values, hostInUrl(server.url), unheard);
  files.fetch(versionFileName);
  ThereAlready there{.version = announcedVersion(files.read(versionFileName)).value_or(0),
                     .container = {},
                     .signature = {}};
  if (there.version != intent.version) return there;
  const std::string signature = std::string(container) + ".signature";
  files.fetch(signature);
  if (!files.has(signature) || files.isAsHere(signature)) return there;
  files.fetch(container);
  if (files.isAsHere(container)) return there;
  there.container = files.read(container);
  there.signature = *files.read(signature);
  return there;
}

ThereAlready lookIntoFolder(const PushServer& server, const PushIntent& intent) {
  const fs::path folder = fs::path(server.place) / "site" / "VestRUM2" / "Scripted";
  ThereAlready there{.version = announcedVersion(contentOf(folder / versionFileName)).value_or(0),
                     .container = {},
                     .signature = {}};
  auto content = contentOf(folder / container);
  if (there.version != intent.version || content == contentOf(intent.home.scripted / container)) {
    return there;
  }
  there.container = std::move(content);
  there.signature = contentOf((folder / container).string() + ".signature").value_or("");
  return there;
}

std::vector<std::string> objectionToVersion(const PushServer& server, const PushIntent& intent) {
  const bool local = server.place.starts_with('/') && server.url.empty();
  if (!local && server.url.empty()) return {};
  const ThereAlready there = local ? lookIntoFolder(server, intent) : askServer(server, intent);
  if (there.version > intent.version) {
    return {fmt::format("{} has version {} already, and version {} is here", server.place,
                        there.version, intent.version),
            fmt::format("  this home is older than what is out; go on with: release --after {} "
                        "FOLDER",
                        there.version)};
  }
  if (there.container && textIsSigned(*there.container, there.signature, intent.publicKey)) {
    return {fmt::format("{} has another version {} than is here, and both are signed", server.place,
                        intent.version),
            fmt::format("  machines take no version twice; go on with: release --after {} FOLDER",
                        intent.version)};
  }
  return {};
}

std::vector<std::string> objectionToFolder(const PushServer& server, const PushIntent& intent) {
  static constexpr auto ours =
      std::to_array<std::string_view>({"VestRUM2", "releases", "definitions"});
  for (const std::string& name : namesInSite(server.place, intent.silence)) {
    if (std::ranges::find(ours, name) != ours.end()) continue;
    return {
        fmt::format("{} has a folder site/ that is not the kit's: it holds {}", server.place, name),
        "  name another folder there, or move that one away"};
  }
  return {};
}

void collect(const PushServer& server, const PushIntent& intent, std::vector<std::string>& lines) {
  try {
    lines = objectionToFolder(server, intent);
    if (lines.empty()) lines = objectionToVersion(server, intent);
  } catch (const std::exception& error) {
    lines = {fmt::format("{} cannot be asked: {}", server.place, error.what())};
  }
}

}  // namespace

std::vector<std::string> objectionsOf(const std::vector<PushServer>& servers,
                                      const PushIntent& intent) {
  std::vector<std::vector<std::string>> each(servers.size());
  atOnce(servers.size(),
         [&](std::size_t number) { collect(servers[number], intent, each[number]); });
  std::vector<std::string> all;
  for (const auto& lines : each) all.insert(all.end(), lines.begin(), lines.end());
  return all;
}

}  // namespace tarnwick::publisher
