#pragma once

#include <string>

namespace tarnwick::publisher {

/// Brings mirror/ forward: ClamAV's own containers, the patches between their versions, and their
/// record. What goes wrong leaves what is served as it was.
///
///   mirror/sets/N/          containers and record that belong together
///   mirror/daily-N.cdiff    leads from version N-1 to N; a client that finds it
///                           empty fetches the whole container
///
/// As on the other hosts, the names that clients know are links through `current`.
void mirror(const std::string& homePath);

}  // namespace tarnwick::publisher
