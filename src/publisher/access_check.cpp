#include "publisher/access_check.hpp"

#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <vector>

#include "publisher/disk.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

/// The groups of the users as which nginx's workers run, as far as there are any here.
std::vector<gid_t> groupsOfNginx() {
  constexpr int most = 64;
  std::vector<gid_t> all;
  for (const char* const user : {"www-data", "nginx"}) {
    const passwd* const entry = ::getpwnam(user);  // NOLINT(concurrency-mt-unsafe): no thread yet
    if (entry == nullptr) continue;
    std::vector<gid_t> groups(most);
    int count = most;
    if (::getgrouplist(user, entry->pw_gid, groups.data(), &count) < 0) continue;
    all.insert(all.end(), groups.begin(), groups.begin() + count);
  }
  return all;
}

class NginxRights {
 public:
  NginxRights() : groups_(groupsOfNginx()) {}

  /// By its group where nginx is on this computer, or as anybody.
  [[nodiscard]] bool may(mode_t right, const struct stat& status) const {
    constexpr int groupShift = 3;
    if ((status.st_mode & right) != 0) return true;
    return (status.st_mode & (right << groupShift)) != 0 &&
           std::ranges::find(groups_, status.st_gid) != groups_.end();
  }

 private:
  std::vector<gid_t> groups_;
};

void checkPath(const Home& home, const NginxRights& nginx, Findings& findings) {
  fs::path path = home.folder;
  do {
    path = path.parent_path();
    struct stat status = {};
    if (::stat(path.c_str(), &status) == 0 && !nginx.may(S_IXOTH, status)) {
      findings.damage(
          fmt::format("{} is closed to nginx, and all below it; chmod o+x it", path.string()));
    }
  } while (path != path.root_path());
}

void checkReadable(const fs::path& path, const NginxRights& nginx, Findings& findings) {
  struct stat status = {};
  if (::lstat(path.c_str(), &status) != 0) return;
  if (S_ISDIR(status.st_mode) && !nginx.may(S_IXOTH, status)) {
    findings.damage(fmt::format("{} is closed to nginx; chmod o+rx it", path.string()));
  } else if (S_ISREG(status.st_mode) && !nginx.may(S_IROTH, status)) {
    findings.damage(fmt::format("{} cannot be read by nginx; chmod o+r it", path.string()));
  }
}

/// The folder itself and all that it holds, sorted.
std::vector<fs::path> below(const fs::path& folder) {
  std::vector<fs::path> paths;
  if (!isThere(folder)) return paths;
  paths.push_back(folder);
  std::error_code error;
  constexpr auto options = fs::directory_options::skip_permission_denied;
  for (fs::recursive_directory_iterator entry(folder, options, error), end; !error && entry != end;
       entry.increment(error)) {
    paths.push_back(entry->path());
  }
  std::ranges::sort(paths);
  return paths;
}

void checkUnchangeable(const fs::path& path, Findings& findings) {
  struct stat status = {};
  if (::lstat(path.c_str(), &status) != 0 || S_ISLNK(status.st_mode)) return;
  if ((status.st_mode & S_IWOTH) == 0) return;
  findings.damage(fmt::format("{} can be changed by anybody; chmod o-w it", path.string()));
}

}  // namespace

void checkAccess(const Home& home, Findings& findings) {
  const NginxRights nginx;
  if (isFile(home.siteSettings)) checkPath(home, nginx, findings);
  checkReadable(home.folder, nginx, findings);
  for (const fs::path& start : {home.site, home.mirror}) {
    for (const fs::path& path : below(start)) checkReadable(path, nginx, findings);
  }
  std::vector<fs::path> ours = ownPaths(home);
  for (const fs::path& path : below(home.mirror)) ours.push_back(path);
  std::ranges::sort(ours);
  ours.erase(std::unique(ours.begin(), ours.end()), ours.end());
  for (const fs::path& path : ours) checkUnchangeable(path, findings);
  struct stat status = {};
  constexpr mode_t rights = 07777;
  if (::stat(home.lock.c_str(), &status) == 0 && (status.st_mode & rights) != (S_IRUSR | S_IWUSR)) {
    findings.damage(fmt::format("{} can be held by others; chmod 600 it", home.lock.string()));
  }
}

}  // namespace tarnwick::publisher
