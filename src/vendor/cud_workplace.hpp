#pragma once

#include <filesystem>
#include <optional>

#include "base/file_tree.hpp"
#include "vendor/vendor_items.hpp"
#include "vendor/vendor_session.hpp"

namespace tarnwick {

/// The folders of one update of the container. Those for scripts are beside the work folder, not in
/// it.
struct CudWorkplace {
  std::filesystem::path directory;
  std::filesystem::path scripts;
  std::filesystem::path aside;  ///< scripts that the installed container contains

  [[nodiscard]] std::filesystem::path container() const { return directory / containerName; }
  [[nodiscard]] std::filesystem::path archive() const { return directory / "VestRUM.tar.gz"; }
  void remove() const {
    for (const std::filesystem::path& folder : {directory, scripts, aside}) removeTree(folder);
  }
};

inline constexpr auto cudWorkFolder = "VestRUMdefs";

/// None without a folder for temporary files.
[[nodiscard]] inline std::optional<CudWorkplace> workplaceOf(const VendorSession& session) {
  const std::optional<std::filesystem::path> directory = session.temporaryFile(cudWorkFolder);
  if (!directory) return std::nullopt;
  return CudWorkplace{.directory = *directory,
                      .scripts = directory->string() + ".scripts",
                      .aside = directory->string() + ".aside"};
}

}  // namespace tarnwick
