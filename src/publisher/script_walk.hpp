#pragma once

#include <cstdint>
#include <optional>

#include "publisher/archive.hpp"
#include "publisher/published_tree.hpp"

namespace tarnwick::publisher {

/// Where scripts lead.
struct ScriptWalk {
  std::optional<FileSet> result;
  std::int64_t stoppedAt = 0;  ///< without a result, the script that could not be applied
};

/// Applies the scripts of a tree to the files of version `from`, from the version after that to
/// `to`, all in one go.
ScriptWalk walkScripts(const FileSet& files, const PublishedTree& tree, std::int64_t from,
                       std::int64_t to);

}  // namespace tarnwick::publisher
