#pragma once

namespace tarnwick {

/// Says in one line of the platform log when others than root can change what root executes or
/// believes: the product's folder, its programs, its configuration.
void reportPrefixRights();

}  // namespace tarnwick
