#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "publisher/findings.hpp"
#include "publisher/home.hpp"
#include "publisher/workplace.hpp"

namespace tarnwick::publisher {

/// Walks the public tree as an installation does and names all damage. A user who only may read the
/// home can ask, too.
/// With `maxAgeDays` a container or a mirror's record that is older is a damage; without, an old
/// record is only told.
void checkHome(const std::string& homePath, std::optional<std::int64_t> maxAgeDays, bool json);

/// What is wrong with the links of the public tree, the mirror and all that is published. Returns
/// the version.
std::int64_t checkPublic(const Home& home, const Workplace& work, Findings& findings);

}  // namespace tarnwick::publisher
