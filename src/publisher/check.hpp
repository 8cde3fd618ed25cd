#pragma once

#include <cstdint>
#include <string>

#include "publisher/findings.hpp"
#include "publisher/home.hpp"
#include "publisher/workplace.hpp"

namespace tarnwick::publisher {

/// Walks the public tree as an installation does and names all damage. A user who only may read the
/// home can ask, too.
void checkHome(const std::string& homePath, bool json);

/// What is wrong with the links of the public tree, the mirror and all that is published. Returns
/// the version.
std::int64_t checkPublic(const Home& home, const Workplace& work, Findings& findings);

}  // namespace tarnwick::publisher
