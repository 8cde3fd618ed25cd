#include "upstream/freshclam_configuration.hpp"

#include <fmt/format.h>

#include <array>
#include <string>
#include <string_view>

#include "base/durable_file.hpp"
#include "base/installation_paths.hpp"
#include "driver/commands.hpp"
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

/// Replaces each mirror that the vendor or ClamAV uses by the mirror of this run.
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

/// Replaces the vendor's three hosts only, even if the mirror of this run is another one.
std::array<Substitution, 5> towardUpstreamMirror() {
  const std::string target = mirror(settings::upstreamMirrorHost);
  return {{
      {mirror(settings::mirrorHost), target},
      {mirror(settings::contentHost), target},
      {mirror(settings::olderMirrorHost), target},
      {versionRecord(settings::versionRecordHost),
       commented(versionRecord(settings::upstreamVersionRecordHost))},
      // Matches within a line too: "MaxAttempts 12" becomes "#MaxAttempts 52".
      {"MaxAttempts 1", "#MaxAttempts 5"},
  }};
}

}  // namespace

void switchFreshclamMirror(const RunContext& context, bool towardVendor) {
  const auto substitutions = towardVendor ? towardVendorMirror(context) : towardUpstreamMirror();
  platform::beginInPlaceEdits(configuration());
  auto outcome = platform::EditsOutcome::allSucceeded;
  for (const auto& [from, to] : substitutions) {
    // Not escaped: a dot in a host matches any character.
    const ExitStatus status = runShellCommand(fmt::format(
        "{} 's/{}/{}/g' {}", platform::inPlaceEditCommand(), from, to, configuration()));
    if (!status.isSuccess()) outcome = platform::EditsOutcome::someFailed;
  }
  // The editor does not sync the file, which could be empty after a loss of power. A failure is
  // ignored: a machine may have no such file.
  static_cast<void>(syncFileAndFolder(configuration()));
  platform::endInPlaceEdits(configuration(), outcome);
}

void prepareFreshclamConfiguration(const RunContext& context) {
  platform::removeUnfinishedEdits(configuration());
  switchFreshclamMirror(context, true);
  // In the fixed folder, even if the data directory is another one.
  runShellCommand(fmt::format("rm -f {}/mirrors.dat", fixedDatabaseDirectory()));
}

}  // namespace tarnwick
