#pragma once

#include <atomic>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "settings/vendor_settings.hpp"

namespace tarnwick {

/// The product's own database folder. Several phases use it even where the command line has moved
/// `dataDirectory` elsewhere; each says so.
inline constexpr std::string_view fixedDatabaseDirectory = "/usr/local/vestRum/share/clamav";

/// Not to be moved by the command line either.
inline constexpr std::string_view sigtoolPath = "/usr/local/vestRum/bin/sigtool";

/// The log, opened for appending, or none. The signal handler may look at it at any moment.
class LogFile {
 public:
  LogFile() = default;
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;
  ~LogFile() { close(); }

  /// Opens `path`, closing what was open. Where that fails there is no log.
  void open(const std::string& path);
  /// Does no harm when nothing is open.
  void close();
  /// -1 when nothing is open.
  [[nodiscard]] int descriptor() const { return descriptor_.load(); }

 private:
  std::atomic<int> descriptor_{-1};
};

/// The settings and flags of one run. The driver makes it and hands it to every phase.
struct RunContext {
  std::string dataDirectory{fixedDatabaseDirectory};
  std::string freshclamPath = "/usr/local/vestRum/bin/freshclam";
  std::string clamscanPath = "/usr/local/vestRum/bin/clamscan";
  std::string mirrorHost{settings::contentHost};
  std::string toolVersion{settings::toolVersion};
  std::string freshclamCommand;
  bool logEnabled = false;
  std::optional<std::string> logPath;
  LogFile logFile;
  bool quietMode = false;
  bool definitionsChanged = false;  ///< a vendor definitions file was replaced or deleted
};

/// A file of this name in `dataDirectory`.
std::filesystem::path inDataDirectory(const RunContext& context, std::string_view name);

}  // namespace tarnwick
