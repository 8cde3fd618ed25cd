#pragma once

namespace tarnwick::publisher {

/// Carries out what the command line says. Returns the exit status: 0 done, or nothing to do; 1
/// refused or damaged; 2 wrong usage.
int runPublisher(int argc, const char* const* argv);

}  // namespace tarnwick::publisher
