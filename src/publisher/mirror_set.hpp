#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>

#include "publisher/home.hpp"
#include "publisher/workplace.hpp"

namespace tarnwick::publisher {

/// A client further behind is better served with the whole container.
inline constexpr std::int64_t patchesKept = 30;

/// One of ClamAV's databases: what is served of it, and what is to be.
struct MirroredDatabase {
  std::int64_t served = 0;   ///< the version that is served, 0 for none or a damaged one
  std::int64_t version = 0;  ///< the version that is to be served, which `container` holds
  std::filesystem::path container;
  std::filesystem::path signature = {};  ///< a detached one; empty where there is none
};

/// The name by which clients ask for it.
std::string signatureName(const std::string& name, std::int64_t version);

using MirroredDatabases = std::map<std::string, MirroredDatabase>;

/// Puts in place what was fetched and tried: patches first, then the containers and their record in
/// one rename. What was served until now stays until the next time: somebody may be on the way to
/// it. Says what is served then.
void putMirrorInPlace(const Home& home, const Workplace& work, const MirroredDatabases& databases);

}  // namespace tarnwick::publisher
