#pragma once

namespace tarnwick {

/// The whole program: writes the version report, or performs one update run. Takes the arguments of
/// `main` and returns the exit status.
[[nodiscard]] int runTarnwick(int argumentCount, char** arguments);

}  // namespace tarnwick
