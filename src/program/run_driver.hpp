#pragma once

namespace tarnwick {

/// The whole program: answers the version report, or carries out one update run. Takes what `main`
/// is given and returns the exit status.
int runTarnwick(int argumentCount, char** arguments);

}  // namespace tarnwick
