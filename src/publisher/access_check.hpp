#pragma once

#include "publisher/findings.hpp"
#include "publisher/home.hpp"

namespace tarnwick::publisher {

/// Whether those who must read what is published can, and nobody else can change it. Folders above
/// the home matter where nginx serves it from this computer, for which `site --remember` was asked
/// once.
void checkAccess(const Home& home, Findings& findings);

}  // namespace tarnwick::publisher
