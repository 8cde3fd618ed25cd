# shellcheck shell=bash disable=SC2034,SC2154
# Old scripts, removed. An installation behind the oldest finds its first script
# missing, and fetches the whole container.

prune_usage() {
    cat <<'END'
Usage: tarnwick-publish [--home DIR] prune [--keep N]

Removes all scripts but the newest N; without --keep, all but the newest that
are smaller together than the container. Installations further behind fetch
the whole container. first.cud moves on to the oldest version that is left.
END
}

# So many of the newest scripts, with their signatures, are smaller together
# than the container, and so worth fetching.
worthwhile_scripts() {
    local number size=0 limit
    limit=$(stat -Lc %s "$scripted/VestRUM.cud")
    for ((number = version; number > oldest; number--)); do
        size=$((size + $(stat -c %s "$scripted/VestRUM-$number.script" "$scripted/VestRUM-$number.script.signature" |
            paste -sd +)))
        ((size < limit)) || break
    done
    echo $((version - number))
}

# The container of that version, made as installations make theirs.
bring_first_forward() {
    local target=$1
    unpack "$first_container" "$work/unpacked" ||
        fail "first.cud cannot be unpacked; see: tarnwick-publish --home $home check"
    replay "$scripted" "$work/unpacked" "$oldest" "$target" ||
        fail "VestRUM-${stopped_at:-$target}.script does not apply; see: tarnwick-publish --home $home check"
    pack "$work/unpacked" "$work/first.cud"
    { read_header "$work/first.cud" && [[ ${header[2]} == "$target" ]] && unpack "$work/first.cud" "$work/again" &&
        diff -r "$work/unpacked" "$work/again"; } >/dev/null 2>&1 || fail "first.cud could not be made anew"
    sync "$work/first.cud"
    mv "$work/first.cud" "$first_container"
    sync "$home"
}

# From the oldest on: whatever is left when this is cut short, a script that an
# installation finds leads it to the newest version.
remove_scripts() {
    local up_to=$1 number
    local numbers=()
    mapfile -t numbers < <(compgen -G "$scripted/VestRUM-*.script*" |
        sed -n 's/.*VestRUM-\([0-9]\+\)\.script.*/\1/p' | sort -nu)
    for number in "${numbers[@]}"; do
        ((number <= up_to)) || break
        rm -f "$scripted/VestRUM-$number.script" "$scripted/VestRUM-$number.script.signature"
    done
}

prune() {
    local keep='' version oldest
    open_home "$1"
    shift
    case ${1:-} in
    --keep) (($# == 2)) || misuse "prune: --keep needs a number"; keep=$2 ;;
    --keep=*) (($# == 1)) || misuse "prune: no such option: $2"; keep=${1#*=} ;;
    *) expect 0 prune "$@" ;;
    esac
    [[ -z $keep || $keep =~ ^[0-9]{1,9}$ ]] || misuse "prune: --keep needs a number, not $keep"
    lock_home
    published_version
    ((version > 0)) || fail "nothing is released yet" "begin with: tarnwick-publish --home $home release FOLDER"
    oldest_version
    [[ -n $keep ]] || keep=$(worthwhile_scripts)
    if ((version - 10#$keep > oldest)); then
        bring_first_forward $((version - 10#$keep))
        oldest_version
    fi
    remove_scripts "$oldest"
    printf 'Kept %s, from version %s on.\n' "$(counted $((version - oldest)) script)" "$oldest"
}
