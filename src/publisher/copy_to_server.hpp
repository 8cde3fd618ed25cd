#pragma once

#include <optional>
#include <string>
#include <vector>

#include "publisher/home.hpp"

namespace tarnwick::publisher {

/// What became of copying the public tree to one server.
struct CopyResult {
  bool done = false;
  std::string why;                    ///< when it is not, what was said of it first
  std::optional<std::string> remedy;  ///< and what to do about it, where that is known
};

/// The names in the folder site/ there, as presentable text; empty when there is none, or it cannot
/// be asked.
std::vector<std::string> namesInSite(const std::string& place, int silence);

/// Copies the public tree by rsync in four steps, each of which relies on the one before: what a
/// link `current` leads to is there before the link, that before those which lead through it, and
/// what it led to before goes last. A server that is silent for so many seconds has failed.
CopyResult copyToServer(const Home& home, const std::string& place, int silence);

}  // namespace tarnwick::publisher
