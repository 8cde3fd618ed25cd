#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "publisher/findings.hpp"
#include "publisher/home.hpp"
#include "publisher/published_tree.hpp"
#include "publisher/workplace.hpp"

namespace tarnwick::publisher {

/// What a check of a tree goes by.
struct TreeStandard {
  const Home& home;
  const Workplace& work;
  std::string publicKey;
  std::int64_t oldest = 1;
  /// Of a served tree: the newest version whose scripts are known. Nothing unsigned of a server's
  /// is tried.
  std::optional<std::int64_t> newestKnown = {};
};

/// Walks a tree as an installation does: every signature, the container's trial, and that the
/// scripts lead from the oldest version to the newest. Returns the container's version, 0 when
/// there is none.
std::int64_t checkTree(const PublishedTree& tree, const TreeStandard& standard, Findings& findings);

}  // namespace tarnwick::publisher
