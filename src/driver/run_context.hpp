#pragma once

#include <atomic>
#include <string>

#include "base/installation_paths.hpp"
#include "driver/log_file.hpp"
#include "settings/vendor_settings.hpp"

namespace tarnwick {

/// The settings and flags of one run. The program creates it, and every phase gets it by reference.
/// The signal handler reads only what is atomic.
struct RunContext {
  std::string dataDirectory = fixedDatabaseDirectory();
  std::string freshclamPath = inPrefix("bin/freshclam");
  std::string clamscanPath = inPrefix("bin/clamscan");
  /// The host of the upstream databases. The interface gives this initial value, but a run sets the
  /// vendor's mirror host before it first uses the field.
  std::string mirrorHost{settings::contentHost};
  std::string toolVersion{settings::toolVersion};
  std::string freshclamCommand;  ///< empty until the arguments are read
  LogFile logFile;
  std::atomic<bool> quietMode = false;
  bool definitionsChanged = false;  ///< this run replaced or deleted a definitions file
};

}  // namespace tarnwick
