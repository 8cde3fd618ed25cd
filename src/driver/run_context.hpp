#pragma once

#include <atomic>
#include <string>

#include "base/installation_paths.hpp"
#include "driver/log_file.hpp"
#include "settings/vendor_settings.hpp"

namespace tarnwick {

/// The settings and flags of one run. The driver makes it and hands it to every phase.
/// What is atomic, the signal handler reads as well.
struct RunContext {
  std::string dataDirectory = fixedDatabaseDirectory();
  std::string freshclamPath = inPrefix("bin/freshclam");
  std::string clamscanPath = inPrefix("bin/clamscan");
  std::string mirrorHost{settings::contentHost};
  std::string toolVersion{settings::toolVersion};
  std::string freshclamCommand;
  LogFile logFile;
  std::atomic<bool> quietMode = false;
  bool definitionsChanged = false;  ///< a vendor definitions file was replaced or deleted
};

}  // namespace tarnwick
