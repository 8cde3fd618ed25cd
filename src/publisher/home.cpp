#include "publisher/home.hpp"

#include <fmt/format.h>
#include <sys/stat.h>

#include <system_error>

#include "base/text_rules.hpp"
#include "publisher/child.hpp"
#include "publisher/disk.hpp"
#include "publisher/owner.hpp"
#include "publisher/refusal.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

void needPrograms() {
  for (const char* const program : {"sigtool", "clamscan"}) {
    if (!findProgram(program)) refuse(fmt::format("{} is missing; install clamav", program));
  }
}

bool hasScript(const Home& home) {
  for (const fs::path& entry : entriesOf(home.scripted)) {
    if (entry.filename().string().starts_with("VestRUM-") && entry.extension() == ".script") {
      return true;
    }
  }
  return false;
}

}  // namespace

Home::Home(fs::path where)
    : folder(std::move(where)),
      privateKey(folder / "private.pem"),
      publicKey(folder / "public.pem"),
      oneLineKey(folder / "public-one-line.pem"),
      firstContainer(folder / "first.cud"),
      lock(folder / "publishing.lock"),
      siteSettings(folder / "site.settings"),
      pushServers(folder / "push.servers"),
      freshclamLines(folder / "freshclam.conf"),
      mirror(folder / "mirror"),
      upstream(folder / "upstream"),
      site(folder / "site"),
      releases(site / "releases"),
      definitions(site / "definitions"),
      tree(site / "VestRUM2"),
      scripted(tree / "Scripted") {}

Home locate(const std::string& path) {
  std::error_code error;
  fs::path resolved = fs::weakly_canonical(path, error);
  if (error || !isFolder(resolved.parent_path())) {
    refuse(fmt::format("{} cannot be reached; name a folder with --home", path));
  }
  return Home(std::move(resolved));
}

Home openHome(const std::string& path) {
  needPrograms();
  Home home = locate(path);
  if (!isThere(home.privateKey) && !isAnythingReleased(home) && entriesOf(home.mirror).empty()) {
    refuse(
        fmt::format("{} is no publishing home yet: it holds no private.pem", home.folder.string()),
        fmt::format("make one with: tarnwick-publish --home {} init", home.folder.string()));
  }
  return home;
}

bool isContainerReleased(const Home& home) {
  return isThere(home.firstContainer) || hasScript(home);
}

bool isAnythingReleased(const Home& home) {
  return isContainerReleased(home) || isLink(home.tree / "current") ||
         !entriesOf(home.releases).empty();
}

std::vector<fs::path> ownPaths(const Home& home) {
  std::vector<fs::path> paths{home.folder};
  for (const fs::path& start :
       {home.privateKey, home.publicKey, home.oneLineKey, home.firstContainer, home.lock,
        home.siteSettings, home.folder / "publishing.log", home.folder / "hooks",
        home.folder / "work", home.site, home.mirror / "sets", home.upstream}) {
    if (!isThere(start)) continue;
    paths.push_back(start);
    std::error_code error;
    constexpr auto options = fs::directory_options::skip_permission_denied;
    for (fs::recursive_directory_iterator entry(start, options, error), end; !error && entry != end;
         entry.increment(error)) {
      paths.push_back(entry->path());
    }
  }
  return paths;
}

void refuseForeignFiles(const Home& home) {
  struct stat status = {};
  if (::stat(home.folder.c_str(), &status) != 0) return;
  const uid_t owner = status.st_uid;
  for (const fs::path& path : ownPaths(home)) {
    if (::lstat(path.c_str(), &status) != 0 || status.st_uid == owner) continue;
    const std::string name = userName(owner);
    refuse(fmt::format("{} belongs to {}, and the home to {}, who could not replace it",
                       path.string(), userName(status.st_uid), name),
           fmt::format("give it back first: sudo chown -hR {} {}", name, path.string()));
  }
}

std::int64_t versionOfScriptName(const std::string& name) {
  constexpr std::string_view start = "VestRUM-";
  constexpr std::size_t mostDigits = 18;
  if (!name.starts_with(start)) return 0;
  const std::string_view rest = std::string_view(name).substr(start.size());
  const std::string_view digits = rest.substr(0, rest.find('.'));
  if (digits.empty() || digits.size() > mostDigits || digits[0] == '0' ||
      digits.find_first_not_of("0123456789") != std::string_view::npos) {
    return 0;
  }
  const std::string_view ending = rest.substr(digits.size());
  return ending == ".script" || ending == ".script.signature" ? parseInteger(digits) : 0;
}

std::string scriptName(std::int64_t version) {
  return fmt::format("VestRUM-{}.script", version);
}

}  // namespace tarnwick::publisher
