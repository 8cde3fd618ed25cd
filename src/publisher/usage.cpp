#include "publisher/usage.hpp"

#include <algorithm>
#include <array>

namespace tarnwick::publisher {
namespace {

constexpr std::string_view generalUsage =
    R"(Usage: tarnwick-publish [--home DIR] COMMAND [ARGUMENT...]

  init              make a publishing home: key pair and public tree
  release FOLDER    publish the signature files in FOLDER as the next version;
                    nothing, if they are what is published already
                    (release --help)
  definitions FILE  publish FILE as the definitions file Vestrum.database, for
                    what an application around ClamAV wants to know: ClamAV
                    itself passes over a file of that name
  withdraw          withdraw the definitions file from every installation
  check             walk the public tree as an installation does, name all damage;
                    with --from https://HOST... as it is served (check --help)
  prune [--keep N]  remove all scripts but the newest N, or but those that are
                    smaller together than the container
  mirror            bring mirror/ forward: ClamAV's own containers, the patches
                    between their versions, and their record (mirror --help)
  push [SERVER...]  copy the public tree to servers, all at once, and ask them as
                    check --from does (push --help)
  status [SERVER...]
                    tell what is published here, and by each server (--json)
  log               tell what was released, pushed and pruned, by whom (--json)
  site [OPTION...]  print the nginx configuration that serves the public tree
                    (site --help lists its options)

DIR is the vendor's publishing home; without --home it is the current folder,
except for init. Only its owner publishes: root's work is done as the owner.
Exit status: 0 done, or nothing to do; 1 refused or damaged; 2 wrong usage.
)";

constexpr std::string_view checkUsage =
    R"(Usage: tarnwick-publish [--home DIR] check [--from URL... [OPTION...]]

Walks the public tree as an installation does and names all damage: keys,
owners, rights along the whole path, the mirror, every signature, and that the
scripts lead from the oldest version to the newest.

With --from it asks servers instead, as installations do, through signed links
over HTTPS: --from https://one.example.org https://two.example.org. A URL that
names neither host of the installations is a server that stands for both. They
are not asked for the mirror. Certificates are checked with the system's
authorities (or CURL_CA_BUNDLE). What they serve is compared with what is here.

  --json                  tell a program
  --max-age DAYS          of the home: a container or a mirror's record that is
                          older is a damage, too

  --content-host HOST     these three as given to site; without them,
  --links-host HOST       as site --remember kept them
  --link-secret TEXT
)";

constexpr std::string_view releaseUsage =
    R"(Usage: tarnwick-publish [--home DIR] release FOLDER [OPTION...]

Publishes the signature files in FOLDER as the next version, and tells what it
changes. Lines that are published keep their order, where that means nothing to
ClamAV. Links, hidden files and what lies in the home are left out or refused.

  --force       release although more than a tenth of the signatures go, a kind
                of them goes, or the script is larger than the container
  --after N     go on behind version N, which is known to be out: no script leads
                to the next version then, and every machine fetches it whole
  --dry-run     build and try it, and publish nothing
  --json        tell a program

Programs in hooks/ of the home are called afterwards, as after a push, with
"release" or "push" as argument and what happened as JSON on standard input.
)";

constexpr std::string_view pruneUsage =
    R"(Usage: tarnwick-publish [--home DIR] prune [--keep N]

Removes all scripts but the newest N; without --keep, all but the newest that
are smaller together than the container. Installations further behind fetch
the whole container. first.cud moves on to the oldest version that is left.
)";

constexpr std::string_view mirrorUsage =
    R"(Usage: tarnwick-publish [--home DIR] mirror

Brings DIR/mirror forward: fetches main.cvd, daily.cvd and bytecode.cvd with
freshclam, which verifies them, and the patches (.cdiff) between the versions;
then puts them in place together with dns.txt, which names their versions.
Whatever goes wrong, and when upstream serves something older, what is served
stays as it is. Once an hour is as often as ClamAV's servers like to be asked.

DIR/freshclam.conf may hold lines in the format of freshclam's configuration:
DatabaseMirror for another source than ClamAV's, HTTPProxyServer, ExtraDatabase
and the like. CURL_CA_BUNDLE names the authorities of a private source.
)";

constexpr std::string_view pushUsage =
    R"(Usage: tarnwick-publish [--home DIR] push [--timeout SECONDS] [SERVER...] [OPTION...]

Copies site/ and mirror/ to every SERVER at once, with rsync over ssh, and then
asks each as check --from does. Nothing else of the home goes there; an empty
mirror/ is left as it is there. Whenever a copy is cut short, the server serves
the old set or the new one, and the next push goes on from there. If a server
loses power within a minute after a push, push again: it may lack new names.

A SERVER is [USER@]HOST:FOLDER or a local /FOLDER, which becomes the home there.
It is asked at https://HOST, or where SERVER=https://HOST[:PORT] says; a local
folder without that is not asked. Without any, the lines of push.servers in DIR
are the servers. ssh must get in without asking; RSYNC_RSH names another shell.

Every server is asked before anything is copied: nothing is pushed when one has a
higher version, the same version signed over something else, or a folder site/
that is not the kit's.

  --first                 the servers that are named, to try them; the next push
                          goes on to the others
  --dry-run               look at everything, and copy nothing
  --json                  tell a program
  --timeout SECONDS       a server that is silent for so long has failed    (60)
  --content-host HOST     these three as given to site; without them,
  --links-host HOST       as site --remember kept them
  --link-secret TEXT
)";

constexpr std::string_view siteUsage =
    R"(Usage: tarnwick-publish [--home DIR] site [OPTION...]

Prints three TLS servers for nginx's http block. The hosts and the secret must
be those that Tarnwick was built with; the values here are its defaults. With
--remember the home keeps them, for the next time, for check --from and push.

  --content-host HOST     plain URLs                 (content.vestrum.example)
  --links-host HOST       time-limited signed links    (links.vestrum.example)
  --mirror-host HOST      whole upstream databases    (mirror.vestrum.example)
  --link-secret TEXT      secret shared with Tarnwick               (Kesto-Ra)
  --certificate FILE      certificate chain, PEM    (tls/certificate.pem in DIR)
  --certificate-key FILE  its private key, PEM               (tls/key.pem in DIR)
  --remember              keep hosts and secret in the home
)";

struct Text {
  std::string_view command;
  std::string_view usage;
};

constexpr std::array texts{Text{"check", checkUsage}, Text{"release", releaseUsage},
                           Text{"prune", pruneUsage}, Text{"mirror", mirrorUsage},
                           Text{"push", pushUsage},   Text{"site", siteUsage}};

}  // namespace

std::string_view usage() {
  return generalUsage;
}

std::string_view usageOf(std::string_view command) {
  const auto* const found = std::ranges::find(texts, command, &Text::command);
  return found == texts.end() ? generalUsage : found->usage;
}

}  // namespace tarnwick::publisher
