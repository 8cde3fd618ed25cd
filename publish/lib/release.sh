# shellcheck shell=bash disable=SC2154
# Versions of VestRUM.cud: built, compared with the one before, and published.

# The newest published version, 0 before the first release. Whatever stands in
# the tree must make sense before anything is built upon it.
published_version() {
    local container=$scripted/VestRUM.cud version_file=$scripted/VestRUM-db-version.txt
    version=0
    [[ -e $scripted/current ]] || put_back_current
    if [[ ! -e $scripted/current ]]; then
        # Counting from 1 again would leave every installation where it is.
        ! container_released ||
            fail "the published container is lost; put it back from a copy of $home"
        return 0
    fi
    { read_header "$container" && [[ $(<"$version_file") == "VestRUM:${header[2]}" ]]; } ||
        fail "the published container and version file do not agree" "see: tarnwick-publish --home $home check"
    version=${header[2]}
}

# Without its link a set is out of sight, and complete all the same: a first
# release was interrupted before the last step, or somebody removed the link.
put_back_current() {
    local set newest=0
    for set in "$site"/releases/*; do
        { read_header "$set/VestRUM.cud" && signature_is_good "$set/VestRUM.cud"; } || continue
        [[ ${set##*/} == "${header[2]}" && $(<"$set/VestRUM-db-version.txt") == "VestRUM:${header[2]}" ]] || continue
        ((header[2] <= newest)) || newest=${header[2]}
    done
    ((newest > 0)) || return 0
    show_release "$newest"
    printf 'Put back version %s, which was complete and out of sight.\n' "$newest"
}

# Installations would fetch and apply a script that changes nothing.
unchanged() {
    diff -rq -x VestRUM.info new published >/dev/null 2>&1
}

build_container() {
    local next=$1
    # An empty data directory, or sigtool counts on from a container it finds there.
    (cd new && SIGNDUSER=vestrum sigtool --build=VestRUM.cud --unsigned --cvd-version="$next" \
        --no-cdiff --datadir="$work/empty") </dev/null >report 2>&1 || refuse_signatures "$next"
    nothing_left_out
}

# The scanner loads the container while sigtool compares it with the one before:
# neither needs the other, and with many signatures both take long.
try_and_compare() {
    local next=$1 trial
    try_as_installations_do new/VestRUM.cud &
    trial=$!
    ((next == 1)) || build_script "$next"
    wait "$trial" || fail "version $next is not released: $(why_refused)"
}

# sigtool holds the second path in a few bytes and cuts longer ones: short
# relative paths only.
build_script() {
    local next=$1
    mkdir old
    cp "$scripted/VestRUM.cud" old/VestRUM.cud
    { sigtool --diff old/VestRUM.cud new/VestRUM.cud && test -f "new/VestRUM-$next.script"; } >report 2>&1 ||
        fail "no script leads from version $((next - 1)) to $next; it is not released" "$(<report)"
    mkdir script
    mv "new/VestRUM-$next.script" script
    # sigtool's word is not enough: on a full disk it says so of an empty script.
    { replay "$work/script" published $((next - 1)) "$next" &&
        diff -rq -x VestRUM.cud new published; } >/dev/null 2>&1 ||
        fail "the script from version $((next - 1)) to $next does not lead there; it is not released"
    sign "script/VestRUM-$next.script"
}

# Nothing is visible before the version file says so, and that, the container
# and its signature become visible together.
put_in_place() {
    local next=$1
    mkdir release
    mv new/VestRUM.cud release/VestRUM.cud
    sign release/VestRUM.cud
    printf 'VestRUM:%s\n' "$next" >release/VestRUM-db-version.txt
    ((next == 1)) || date_after release "$scripted/current"
    sync release/* release
    if ((next > 1)); then
        sync script/*
        mv "script/VestRUM-$next.script.signature" "script/VestRUM-$next.script" "$scripted"
    fi
    mv -T release "$site/releases/$next"
    show_release "$next"
}

show_release() {
    local number=$1
    if ((number == 1)) && [[ ! -e $first_container ]]; then
        cp "$site/releases/1/VestRUM.cud" "$work/first"
        sync "$work/first"
        mv "$work/first" "$first_container"
        sync "$home"
    fi
    switch_link "../../releases/$number" "$scripted/current"
}

release() {
    local folder next
    open_home "$1"
    [[ -d $2 && -r $2 && -x $2 ]] || fail "$2 is not a folder of signature files that can be read by $(id -un)"
    folder=$(readlink -f "$2")
    lock_to_publish
    published_version
    next=$((version + 1))
    sweep_others "$site/releases" "$scripted/current"
    cd "$work" || exit
    mkdir new empty
    gather "$folder"
    if ((next > 1)); then
        unpack "$scripted/VestRUM.cud" published || fail "the published container cannot be unpacked" \
            "put back from a copy what is damaged: tarnwick-publish --home $home check"
    fi
    if ((next > 1)) && unchanged; then
        printf 'Nothing new: version %s holds exactly these signatures.\n' "$version"
        return 0
    fi
    build_container "$next"
    try_and_compare "$next"
    put_in_place "$next"
    sweep_others "$site/releases" "$scripted/current"
    read_header "$scripted/VestRUM.cud"
    printf 'Released version %s with %s.\n' "$next" "$(counted "${header[3]}" signature)"
}
