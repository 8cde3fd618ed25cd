#pragma once

#include <filesystem>
#include <string>

/// The definitions file Vestrum.database.
namespace tarnwick::publisher {

void publishDefinitions(const std::string& homePath, const std::filesystem::path& file);

/// Publishes an empty file, which tells every installation to delete its own. It must stay
/// published: a missing file would tell them nothing.
void withdrawDefinitions(const std::string& homePath);

}  // namespace tarnwick::publisher
