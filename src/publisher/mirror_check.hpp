#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "publisher/findings.hpp"
#include "publisher/home.hpp"
#include "publisher/workplace.hpp"

namespace tarnwick::publisher {

/// Whether a file is a container that fits ClamAV's own signature, by the installed sigtool.
bool isGoodContainer(const std::filesystem::path& container, const Workplace& work);

/// Whether a patch says itself that it leads to the version in its name.
bool namesItsVersion(const std::filesystem::path& patch);

/// The versions of a database that a patch in the mirror leads to, the newest first.
std::vector<std::int64_t> patchesOf(const Home& home, const std::string& name);

/// What the mirror host serves. Installations without databases take whatever it gives them.
void checkMirror(const Home& home, const Workplace& work, Findings& findings);

/// A plain file in the place of a link would stay when the next set is published.
void checkLink(const std::filesystem::path& link, Findings& findings);

}  // namespace tarnwick::publisher
