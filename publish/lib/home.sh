# shellcheck shell=bash disable=SC2034,SC2154
# The publishing home: where things lie, who may work in it, what is swept up.
#
#   private.pem             the signing key, for the vendor's eyes only
#   public.pem              its public half, for the build of Tarnwick
#   public-one-line.pem     the same as the one line that the program holds
#   first.cud               the version that the oldest script starts from, and
#                           from which `check` replays them all
#   publishing.lock         held by whoever changes anything here
#   site.settings           hosts and secret as `site` was told last
#   push.servers            whom `push` copies the public tree to
#   mirror/                 what the mirror host serves; see mirror.sh
#   upstream/               where a freshclam of the kit's own works for it
#   site/VestRUM2/          what the content and links hosts serve
#   site/releases/N/        container, signature and version file of version N
#   site/definitions/N/     definitions file and signature, Nth publication
#
# A container and its signature must change in one instant, and a rename
# changes one name only. So the names that belong together are links through a
# single name, `current`, and replacing that name publishes all of them.

need_programs() {
    local program
    for program in sigtool clamscan openssl flock; do
        [[ -n $(type -P "$program") ]] ||
            fail "$program is missing; install clamav, openssl and util-linux"
    done
}

locate() {
    home=$(readlink -f "$1") || fail "$1 cannot be reached; name a folder with --home"
    private_key=$home/private.pem
    public_key=$home/public.pem
    one_line_key=$home/public-one-line.pem
    first_container=$home/first.cud
    lock=$home/publishing.lock
    site_settings=$home/site.settings
    mirror=$home/mirror
    upstream=$home/upstream
    site=$home/site
    tree=$site/VestRUM2
    scripted=$tree/Scripted
}

# What tells of a container even when it is lost itself.
container_released() {
    [[ -e $first_container ]] || compgen -G "$scripted/VestRUM-*.script" >/dev/null
}

anything_released() {
    container_released || [[ -L $tree/current ]] || compgen -G "$site/releases/*" >/dev/null
}

# Settles which home is meant, and that it is one, and who works in it.
open_home() {
    need_programs
    locate "$1"
    [[ ! -d $home ]] || work_as_owner
    [[ -f $private_key ]] || anything_released || fail "$home is no publishing home yet: it holds no private.pem" \
        "make one with: tarnwick-publish --home $home init"
}

# For everything that signs: with the key that installations trust, or not at all.
lock_to_publish() {
    lock_home
    require_key
}

# What root leaves in a home would shut its owner out. Whoever owns the folder could
# also put a link where root is about to write.
work_as_owner() {
    local folder=${1:-$home} owner group groups=--clear-groups
    owner=$(stat -c %u "$folder")
    ((EUID != owner)) || return 0
    ((EUID == 0)) || fail "$home belongs to $(stat -c %U "$home"); only its owner can publish"
    group=$(id -g "$owner" 2>/dev/null) || group=$(stat -c %g "$folder")
    ! getent passwd "$owner" >/dev/null || groups=--init-groups
    # Root may stand where the owner cannot be, and have no rights of its own to the home.
    cd /
    set -- setpriv --reuid "$owner" --regid "$group" "$groups"
    "$@" test -r "$program" || fail "$(stat -c %U "$folder"), to whom $folder belongs, cannot read $program" \
        "put the publishing kit where everybody can read it"
    exec "$@" "$program" --home "$home" "${command_line[@]}"
}

# What the kit writes must stay the owner's; tls/ is not its work, and mirror/ may
# hold what somebody else put there.
foreign_files() {
    local path paths=()
    for path in "$home" "$private_key" "$public_key" "$one_line_key" "$first_container" "$lock" \
        "$site_settings" "$home/work" "$site" "$mirror/sets" "$upstream"; do
        [[ ! -e $path ]] || paths+=("$path")
    done
    find "${paths[@]}" \( -path "$home" -prune -o -true \) "$@"
}

refuse_foreign_files() {
    local path owner
    owner=$(stat -c %U "$home")
    path=$(foreign_files ! -user "$(stat -c %u "$home")" -print -quit 2>/dev/null)
    [[ -z $path ]] || fail "$path belongs to $(stat -c %U "$path"), and the home to $owner, who could not replace it" \
        "give it back first: sudo chown -hR $owner $path"
}

# One change at a time. Children inherit the lock, so that a program which
# outlives a killed release still keeps the next one away from its files.
lock_home() {
    refuse_foreign_files
    # Whoever can open the file can hold the lock, and publishing up for ever.
    umask 077
    exec 9>"$lock"
    umask 022
    flock -n 9 || {
        echo "Waiting for another tarnwick-publish in $home" >&2
        flock 9
    }
    rm -rf -- "$home/work"
    mkdir -m 0700 "$home/work"
    work=$home/work
    export TMPDIR=$work
}

# Points LINK at TARGET in one step, whatever it pointed at before. What it
# leads to must be on the disk before it, whenever the power goes.
switch_link() {
    local target=$1 link=$2
    ln -s "$target" "$work/link"
    sync "${link%/*}" "${link%/*}/${target%/*}"
    mv -T "$work/link" "$link"
    sync "${link%/*}"
}

# Whoever keeps a copy of a file goes by its date, in whole seconds, and its
# length: two publications within one second would look like one.
date_after() {
    local new=$1 published=$2 first last
    first=$(stat -c %Y -- "$new"/* | sort -n | sed -n 1p)
    last=$(stat -c %Y -- "$published"/* | sort -n | tail -n 1)
    ((first > last)) || touch -d "@$((last + 1))" -- "$new"/*
}

# The number of the set that a link leads to, 0 without one. Others may write in
# mirror/, and bash would carry out commands in what it takes for a number.
number_behind() {
    local target
    target=$(readlink "$1") || true
    [[ $target =~ ^(|.*/)([1-9][0-9]{0,17})$ ]] || target=0
    echo "${target##*/}"
}

# Removes every entry of a folder but the one that a link leads to: what was
# published before, and what an interrupted change left behind.
sweep_others() {
    local parent=$1 link=$2 keep='' entry
    [[ ! -L $link ]] || keep=$(readlink "$link")
    for entry in "$parent"/*; do
        [[ ${entry##*/} == "${keep##*/}" ]] || rm -rf -- "$entry"
    done
}

# Whose work a new home is: that of the owner of what this names, which is the last
# folder on the way to it that is there, or a link on the way that is not root's.
last_on_the_way() {
    local path part parts=() reached=
    path=$(realpath -ms -- "$1")
    IFS=/ read -r -a parts <<<"${path#/}"
    for part in "${parts[@]}"; do
        [[ -e $reached/$part || -L $reached/$part ]] || break
        reached+=/$part
        [[ ! -L $reached || $(stat -c %u "$reached") == 0 ]] || break
    done
    echo "${reached:-/}"
}

make_home() {
    need_programs
    home=$(readlink -m -- "$1")
    ((EUID)) || work_as_owner "$(last_on_the_way "$1")"
    mkdir -p "$1" || fail "$1 cannot be made; choose another folder with --home" \
        "or let root make it yours first: install -d -o $(id -un) $1"
    locate "$1"
    work_as_owner
    [[ ! -e $private_key ]] || fail "$home holds a private key already; it is kept as it is" \
        "every installation trusts that key: use another --home for a new one"
    ! anything_released || refuse_without_key
    lock_home
    mkdir -p "$home/mirror" "$site/releases" "$site/definitions" "$scripted"
    ln -sfn current/VestRUM.cud "$scripted/VestRUM.cud"
    ln -sfn current/VestRUM.cud.signature "$scripted/VestRUM.cud.signature"
    ln -sfn current/VestRUM-db-version.txt "$scripted/VestRUM-db-version.txt"
    ln -sfn current/Vestrum.database "$tree/Vestrum.database"
    ln -sfn current/Vestrum.database.signature "$tree/Vestrum.database.signature"
    make_keys
    printf 'Publishing home %s is ready.\n' "$home"
    printf 'Build Tarnwick with -DTARNWICK_PUBLIC_KEY_FILE=%s\n' "$public_key"
    printf 'Keep a copy of %s in a safe place: without it nobody can be updated.\n' "$private_key"
}
