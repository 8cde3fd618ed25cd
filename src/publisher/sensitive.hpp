#pragma once

#include <filesystem>

#include "publisher/home.hpp"

namespace tarnwick::publisher {

/// Refuses to publish what may be the private key under another name: a link, or the very file that
/// the key is, or one that the kit keeps in the home.
void refuseSensitive(const std::filesystem::path& file, const Home& home);

/// Refuses a folder of signatures that is the home itself, or lies where the kit keeps its files.
void refuseFolderOfHome(const std::filesystem::path& folder, const Home& home);

}  // namespace tarnwick::publisher
