#include "upstream/freshclam_configuration.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <string>
#include <string_view>

#include "base/files.hpp"
#include "base/prefix.hpp"
#include "driver/run/commands.hpp"
#include "platform/platform.hpp"
#include "settings/vendor_settings.hpp"

namespace tarnwick {
namespace {

std::string configuration() {
  return inPrefix("etc/freshclam.conf");
}

struct Substitution {
  std::string from;
  std::string to;
};

std::string mirror(std::string_view host) {
  return fmt::format("DatabaseMirror {}", host);
}

std::string versionRecord(std::string_view host) {
  return fmt::format("DNSDatabaseInfo {}", host);
}

std::string commented(std::string_view line) {
  return fmt::format("#{}", line);
}

/// Rewrites whichever mirror the file names to the run's own.
std::array<Substitution, 5> towardVendorMirror(const RunContext& context) {
  const std::string target = mirror(context.mirrorHost);
  return {{
      {mirror(settings::upstreamMirrorHost), target},
      {mirror(settings::olderMirrorHost), target},
      {mirror(settings::contentHost), target},
      {commented(versionRecord(settings::upstreamVersionRecordHost)),
       versionRecord(settings::versionRecordHost)},
      {"#MaxAttempts 5", "MaxAttempts 1"},
  }};
}

/// Knows the vendor's three hosts only, whatever the run's own mirror was.
std::array<Substitution, 5> towardUpstreamMirror() {
  const std::string target = mirror(settings::upstreamMirrorHost);
  return {{
      {mirror(settings::mirrorHost), target},
      {mirror(settings::contentHost), target},
      {mirror(settings::olderMirrorHost), target},
      {versionRecord(settings::versionRecordHost),
       commented(versionRecord(settings::upstreamVersionRecordHost))},
      // Matches anywhere, so that "MaxAttempts 12" becomes "#MaxAttempts 52".
      {"MaxAttempts 1", "#MaxAttempts 5"},
  }};
}

}  // namespace

void switchFreshclamMirror(const RunContext& context, bool towardVendor) {
  const auto substitutions = towardVendor ? towardVendorMirror(context) : towardUpstreamMirror();
  for (const auto& [from, to] : substitutions) {
    // Not escaped: a dot in a host matches any character.
    runShellCommand(fmt::format("{} 's/{}/{}/g' {}", platform::inPlaceEditCommand(), from, to,
                                configuration()));
  }
}

void removeUnfinishedEdits() {
  constexpr std::string_view prefix = "sed";
  constexpr std::size_t nameLength = prefix.size() + 6;  // sed's own temporary names
  namespace fs = std::filesystem;
  const fs::path folder = fs::path(configuration()).parent_path();
  for (const std::string& name : namesIn(folder).value_or(std::vector<std::string>{})) {
    const bool isTemporary =
        name.starts_with(prefix) && name.size() == nameLength &&
        name.find('.') == std::string::npos &&
        name.find_first_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789") != std::string::npos;
    if (isTemporary) ::unlink((folder / name).c_str());
  }
}

void prepareFreshclamConfiguration(const RunContext& context) {
  removeUnfinishedEdits();
  switchFreshclamMirror(context, true);
  // A fixed path: it does not follow the data directory.
  runShellCommand(fmt::format("rm -f {}/mirrors.dat", fixedDatabaseDirectory()));
}

}  // namespace tarnwick
