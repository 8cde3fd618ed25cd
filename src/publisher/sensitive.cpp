#include "publisher/sensitive.hpp"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <system_error>

#include "publisher/disk.hpp"
#include "publisher/refusal.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

bool isBelow(const fs::path& path, const fs::path& folder) {
  const auto [rest, _] = std::ranges::mismatch(folder, path);
  return rest == folder.end();
}

bool liesWhereTheKitWorks(const fs::path& path, const Home& home) {
  std::error_code ignored;
  const fs::path real = fs::weakly_canonical(path, ignored);
  return std::ranges::any_of(
      std::array{home.site, home.mirror, home.upstream, home.folder / "work", home.folder / "tls"},
      [&real](const fs::path& folder) { return isBelow(real, folder); });
}

bool isSameFile(const fs::path& one, const fs::path& other) {
  struct stat first = {};
  struct stat second = {};
  return ::stat(one.c_str(), &first) == 0 && ::stat(other.c_str(), &second) == 0 &&
         first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

}  // namespace

void refuseSensitive(const fs::path& file, const Home& home) {
  if (isLink(file)) refuse(fmt::format("{} is a link; only files are published", file.string()));
  if (isSameFile(file, home.privateKey)) {
    refuse(fmt::format("{} is the private key; it is not published", file.string()));
  }
  std::error_code ignored;
  const bool inHome = fs::weakly_canonical(file.parent_path(), ignored) == home.folder;
  const fs::path name = file.filename();
  const bool kept = inHome && (file.extension() == ".pem" || name == "first.cud" ||
                               name == "site.settings" || name == "push.servers");
  if (kept || liesWhereTheKitWorks(file, home)) {
    refuse(fmt::format("{} belongs to the publishing home; it is not published", file.string()));
  }
}

void refuseFolderOfHome(const fs::path& folder, const Home& home) {
  std::error_code ignored;
  if (fs::weakly_canonical(folder, ignored) == home.folder || liesWhereTheKitWorks(folder, home)) {
    refuse(fmt::format("{} belongs to the publishing home; it is no folder of signatures",
                       folder.string()));
  }
}

}  // namespace tarnwick::publisher
