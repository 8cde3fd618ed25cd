#include "publisher/sensitive.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <system_error>

#include "publisher/disk.hpp"
#include "publisher/owner.hpp"
#include "publisher/refusal.hpp"

namespace tarnwick::publisher {

namespace fs = std::filesystem;

namespace {

/// Whether a file of the home is the same file under another name.
bool isFileOfHome(const fs::path& file, const Home& home) {
  std::error_code error;
  if (fs::hard_link_count(file, error) < 2 || error) return false;
  for (fs::recursive_directory_iterator entry(home.folder, error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code ignored;
    if (fs::equivalent(entry->path(), file, ignored)) return true;
  }
  return false;
}

}  // namespace

void refuseInHome(const fs::path& path, const Home& home) {
  std::error_code ignored;
  const fs::path real = fs::weakly_canonical(path, ignored);
  if (std::ranges::mismatch(home.folder, real).in1 != home.folder.end()) return;
  refuse(
      fmt::format("{} lies in the publishing home, of which nothing is published; keep it "
                  "elsewhere",
                  real.string()));
}

std::string readToPublish(const fs::path& file, const Home& home) {
  auto content = contentOf(file, Follow::no);
  if (!content) {
    refuse(fmt::format("{} cannot be read by {}", file.string(), ownName()));
  }
  if (*content == contentOf(home.privateKey)) {
    refuse(fmt::format("{} is the private key, which is never published", file.string()));
  }
  if (isFileOfHome(file, home)) {
    refuse(fmt::format("{} is a file of the publishing home under another name", file.string()));
  }
  return std::move(*content);
}

}  // namespace tarnwick::publisher
