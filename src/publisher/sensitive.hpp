#pragma once

#include <filesystem>
#include <string>

#include "publisher/home.hpp"

/// What is published is read by everybody. So nothing of the home is, no link, and never the
/// private key under any name.
namespace tarnwick::publisher {

/// Refuses a file or folder that lies in the home.
void refuseInHome(const std::filesystem::path& path, const Home& home);

/// The content of a vendor's file, read once through one descriptor that follows no link: what is
/// judged is what is published. Refuses the private key, every file of the home under another name,
/// and what cannot be read.
std::string readToPublish(const std::filesystem::path& file, const Home& home);

}  // namespace tarnwick::publisher
