#pragma once

#include <filesystem>
#include <string>

#include "publisher/command_line.hpp"
#include "publisher/home.hpp"

namespace tarnwick::publisher {

/// What the servers and the machines have in common.
struct SiteValues {
  std::string contentHost;
  std::string linksHost;
  std::string mirrorHost;
  std::string linkSecret;
  std::filesystem::path certificate;
  std::filesystem::path certificateKey;
};

/// As the command line says, else as remembered, or else as Tarnwick is built when nobody says
/// otherwise. Refuses a value that ends a string or names a variable, which would change what nginx
/// reads.
SiteValues siteValues(const Home& home, const Invocation& invocation);

/// Prints the nginx configuration that serves the public tree; with --remember, keeps the values
/// for commands that ask the servers later. That they were kept tells that the tree is served from
/// this computer.
void printSite(const std::string& homePath, const Invocation& invocation);

}  // namespace tarnwick::publisher
