#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace tarnwick::publisher {

/// The publishing home: where things lie.
///
///   private.pem             the signing key, for the vendor's eyes only
///   public.pem              its public half, for the build of Tarnwick
///   public-one-line.pem     the same as the one line that the program holds
///   first.cud               the version that the oldest script starts from, and
///                           from which `check` replays them all
///   publishing.lock         held by a command that changes anything here
///   publishing.log          what was released, pushed, pruned, by whom and when
///   hooks/                  programs of the vendor's that are called afterwards
///   site.settings           hosts and secret as `site --remember` was told last
///   push.servers            the servers to which `push` copies the public tree
///   freshclam.conf          the vendor's own lines for the freshclam of `mirror`
///   mirror/                 what the mirror host serves
///   upstream/               where that freshclam works
///   site/VestRUM2/          what the content and links hosts serve
///   site/releases/N/        container, signature and version file of version N
///   site/definitions/N/     definitions file and signature, Nth publication
///
/// A container and its signature must change in one instant, and a rename changes one name only. So
/// the names that belong together are links through a single name, `current`, and replacing that
/// name publishes all of them.
struct Home {
  explicit Home(std::filesystem::path where);

  std::filesystem::path folder;
  std::filesystem::path privateKey;
  std::filesystem::path publicKey;
  std::filesystem::path oneLineKey;
  std::filesystem::path firstContainer;
  std::filesystem::path lock;
  std::filesystem::path siteSettings;
  std::filesystem::path pushServers;
  std::filesystem::path freshclamLines;
  std::filesystem::path mirror;
  std::filesystem::path upstream;
  std::filesystem::path site;
  std::filesystem::path releases;
  std::filesystem::path definitions;
  std::filesystem::path tree;
  std::filesystem::path scripted;
};

/// The folder that is meant, links resolved.
Home locate(const std::string& path);

/// A publishing home, or a refusal.
Home openHome(const std::string& path);

/// Whether a version was ever released here, even if the container itself is lost.
bool isContainerReleased(const Home& home);
bool isAnythingReleased(const Home& home);

/// The paths below the home that the kit writes, and which must stay the owner's. tls/ is not its
/// work, and mirror/ may hold what somebody else put there.
std::vector<std::filesystem::path> ownPaths(const Home& home);

/// Refuses a home that holds files which its owner could not replace.
void refuseForeignFiles(const Home& home);

/// The version that the name of a script, or of its signature, bears: "VestRUM-7.script". 0 for
/// any other name.
std::int64_t versionOfScriptName(const std::string& name);
std::string scriptName(std::int64_t version);

}  // namespace tarnwick::publisher
