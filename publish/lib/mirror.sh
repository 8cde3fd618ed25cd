# shellcheck shell=bash disable=SC2034,SC2154
# The mirror, brought forward: whole containers by a freshclam of its own, the
# patches between their versions, and the record of the versions that are served.
#
#   freshclam.conf          the vendor's own lines for freshclam, if there are any
#   upstream/               that freshclam's folder
#   mirror/sets/N/          containers and record that belong together
#   mirror/daily-N.cdiff    leads from version N-1 to N; a client that finds it
#                           empty fetches the whole container
#
# As on the other hosts, the names that clients know are links through `current`.

mirror_usage() {
    cat <<'END'
Usage: tarnwick-publish [--home DIR] mirror

Brings DIR/mirror forward: fetches main.cvd, daily.cvd and bytecode.cvd with
freshclam, which verifies them, and the patches (.cdiff) between the versions;
then puts them in place together with dns.txt, which names their versions.
Whatever goes wrong, and when upstream serves something older, what is served
stays as it is. Once an hour is as often as ClamAV's servers like to be asked.

DIR/freshclam.conf may hold lines in the format of freshclam's configuration:
DatabaseMirror for another source than ClamAV's, HTTPProxyServer, ExtraDatabase
and the like. CURL_CA_BUNDLE names the authorities of a private source.
END
}

# The record in the form of ClamAV's own. It tells when upstream was asked, warns
# nobody of an old ClamAV (0), and knows of no newer program than the one here.
version_record() {
    local program
    program=$(sigtool --version | sed 's/^ClamAV \([^/]*\).*/\1/')
    read_header "${container[daily]:-}" || header=()
    printf '%s:%s:%s:%s:0:%s:0:%s\n' "$program" "${version[main]:-0}" "${version[daily]:-0}" \
        "$(date +%s)" "${header[4]:-0}" "${version[bytecode]:-0}"
}

# A container's name that is missing leads nowhere until `current` is switched; a
# plain file is replaced only after that, and the record, which names them, last.
link_names() {
    local file
    for file in "$@"; do
        [[ $(readlink "$mirror/$file") != "current/$file" ]] || continue
        ln -s "current/$file" "$work/name"
        mv -T "$work/name" "$mirror/$file"
    done
}

missing_names() {
    local file
    for file; do
        [[ -e $mirror/$file || -L $mirror/$file ]] || echo "$file"
    done
}

publish_set() {
    local name files=() missing number
    for name in "${!container[@]}"; do
        # Somebody else's file can be copied only.
        ln -L "${container[$name]}" "$work/set/$name.cvd" 2>/dev/null ||
            cp --no-preserve=all "${container[$name]}" "$work/set/$name.cvd"
        files+=("$name.cvd")
    done
    sync "$work"/set/* "$work/set"
    number=$(($(number_behind "$mirror/current") + 1))
    mv -T "$work/set" "$mirror/sets/$number"
    mapfile -t missing < <(missing_names "${files[@]}")
    link_names "${missing[@]}"
    # A folder, which a copy made of the link, would stay in the way for ever.
    [[ -L $mirror/current ]] || rm -rf -- "$mirror/current"
    switch_link "sets/$number" "$mirror/current"
    link_names "${files[@]}" dns.txt
    sync "$mirror"
}

publish_patches() {
    local patches=("$upstream"/*-*.cdiff)
    [[ -e ${patches[0]} ]] || return 0
    chmod 0644 "${patches[@]}"
    sync "${patches[@]}"
    mv "${patches[@]}" "$mirror"
    sync "$mirror"
}

# The versions of a database that a patch leads to.
patches_of() {
    compgen -G "$mirror/$1-*.cdiff" | sed -n 's/.*-\([0-9]\+\)\.cdiff$/\1/p'
}

# As many of the newest as are worth fetching instead of the container.
sweep_patches() {
    local name=$1 number size=0 limit
    limit=$(stat -Lc %s "$mirror/$name.cvd")
    while read -r number; do
        size=$((size + $(stat -c %s "$mirror/$name-$number.cdiff")))
        ((size < limit && number > version[$name] - PATCHES_KEPT)) || rm "$mirror/$name-$number.cdiff"
    done < <(patches_of "$name" | sort -rn)
}

nothing_new() {
    local name
    for name in "${!container[@]}"; do
        [[ ${container[$name]} -ef $mirror/current/$name.cvd && -L $mirror/$name.cvd ]] || return 1
    done
    [[ -L $mirror/current && $(readlink "$mirror/dns.txt") == current/dns.txt ]]
}

# What was served until now stays until the next time: somebody may be on the
# way to it.
put_mirror_in_place() {
    local name
    mkdir -p "$mirror/sets" "$work/set"
    version_record >"$work/set/dns.txt"
    publish_patches
    if nothing_new; then
        sync "$work/set/dns.txt"
        mv "$work/set/dns.txt" "$mirror/current/dns.txt"
        printf 'Nothing new:'
    else
        sweep_others "$mirror/sets" "$mirror/current"
        publish_set
        printf 'Mirrored:'
    fi
    for name in "${!container[@]}"; do
        sweep_patches "$name"
    done
    printf '%s\n' "${!container[@]}" | sort | while read -r name; do
        printf ' %s %s' "$name" "${version[$name]}"
    done
    echo
}

mirror() {
    local name source
    local -A served version container
    open_home "$1"
    [[ -n $(type -P freshclam) ]] || fail "freshclam is missing; install clamav-freshclam"
    lock_upstream
    find_source
    fetch_containers
    choose_containers
    for name in "${!container[@]}"; do
        fetch_patches "$name"
        try_patches "$name"
    done
    rm -rf -- "$work"
    lock_home
    put_mirror_in_place
}
