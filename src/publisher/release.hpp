#pragma once

#include <filesystem>
#include <string>

namespace tarnwick::publisher {

/// Publishes the signature files of a folder as the next version; nothing, if they are published
/// already.
void release(const std::string& homePath, const std::filesystem::path& folder);

}  // namespace tarnwick::publisher
