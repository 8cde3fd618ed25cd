#include "publisher/sensitive.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <system_error>

#include "publisher/disk.hpp"
#include "publisher/owner.hpp"
#include "publisher/refusal.hpp"

namespace tarnwick::publisher {

namespace fs = std::filesystem;

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
  return std::move(*content);
}

}  // namespace tarnwick::publisher
