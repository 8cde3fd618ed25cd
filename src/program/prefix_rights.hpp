#pragma once

namespace tarnwick {

/// Reports, in one line of the platform log, if users other than root can change a file that root
/// executes or trusts: the prefix, its programs or its configuration.
void reportPrefixRights();

}  // namespace tarnwick
