# shellcheck shell=bash disable=SC2034,SC2154
# The public tree, copied to the servers that give it out.

push_usage() {
    cat <<'END'
Usage: tarnwick-publish [--home DIR] push [--timeout SECONDS] [SERVER...] [OPTION...]

Copies site/ and mirror/ to every SERVER at once, with rsync over ssh, and then
asks each as check --from does. Nothing else of the home goes there; an empty
mirror/ is left as it is there. Whenever a copy is cut short, the server serves
the old set or the new one, and the next push goes on from there. If a server
loses power within a minute after a push, push again: it may lack new names.

A SERVER is [USER@]HOST:FOLDER or a local /FOLDER, which becomes the home there.
It is asked at https://HOST, or where SERVER=https://HOST[:PORT] says; a local
folder without that is not asked. Without any, the lines of push.servers in DIR
are the servers. ssh must get in without asking; RSYNC_RSH names another shell.

  --timeout SECONDS       a server that is silent for so long has failed    (60)
  --content-host HOST     these three as given to site; without them,
  --links-host HOST       as they were given to it last
  --link-secret TEXT
END
}

# Takes a SERVER apart, into `places` and `urls`.
take_server() {
    local place=$1 url='' name='[A-Za-z0-9_][A-Za-z0-9._-]*' other
    if [[ $place =~ ^(.+)=(https://[^=]*)$ ]]; then
        place=${BASH_REMATCH[1]}
        url=${BASH_REMATCH[2]}
    fi
    if [[ $place =~ ^($name@)?($name):[^:] ]]; then
        url=${url:-https://${BASH_REMATCH[2]}}
    elif [[ $place != /* ]]; then
        misuse "push: \"$place\" is neither HOST:FOLDER nor /FOLDER"
    fi
    # rsync at the other end would look for names that fit.
    [[ $place != *[][:cntrl:]*?[\\~]* ]] || misuse "push: \"$place\" holds a character that rsync reads differently"
    [[ $place != /* || $(readlink -m -- "$place")/ != "$home"/* ]] || misuse "push: \"$place\" is in the home itself"
    for other in "${places[@]}"; do
        [[ $place != "$other" ]] || misuse "push: \"$place\" is named twice"
    done
    places+=("$place")
    urls+=("$url")
}

# The servers that are named, or else those of the home's own list.
read_push_arguments() {
    local line list=$home/push.servers
    while (($#)); do
        case $1 in
        --timeout) (($# > 1)) || misuse "push: --timeout needs seconds"; silence=$2; shift 2 ;;
        --timeout=*) silence=${1#*=}; shift ;;
        -*) break ;;
        *) take_server "$1"; shift ;;
        esac
    done
    [[ $silence =~ ^[1-9][0-9]{0,4}$ ]] || misuse "push: --timeout needs seconds, not $silence"
    read_site_options "$@"
    ((${#places[@]} == 0)) && [[ -f $list ]] || return 0
    while read -r line || [[ -n $line ]]; do
        [[ -z $line || $line == '#'* ]] || take_server "$line"
    done <"$list"
}

# What is damaged here would be damaged everywhere.
refuse_to_push_damage() {
    published_version
    ((version > 0)) || fail "nothing is released yet" "begin with: tarnwick-publish --home $home release FOLDER"
    check_links
    check_mirror
    check_published
    [[ -e $tree/current ]] || ! compgen -G "$site/definitions/*" >/dev/null ||
        damage "the definitions file is out of sight; publish or withdraw it again"
    ((damages == 0)) || fail "$(counted "$damages" thing) found; nothing is pushed"
}

# The files must be readable there by nginx, whatever the umask, and dated as
# here; they belong to whoever logs in.
copy_public() {
    rsync -rpt -s --relative --omit-dir-times --chmod=D755,F644 --fsync --timeout="$silence" "$@" \
        "${public[@]}" "$place/" </dev/null
}

# Every step relies on the one before. What a link `current` leads to is there
# before the link, that before those which lead through it, and what it led to
# before goes last: rsync deletes even where it could not replace a link. The
# mirror's version record never runs ahead of the containers.
push_to() {
    local place=$1 record=--exclude=/mirror/dns.txt
    copy_public --partial-dir=.rsync-partial "$record" &&
        copy_public --links --include='*/' --include=current --exclude='*' &&
        copy_public --links "$record" &&
        copy_public --links --delete-after
}

# A server may go on and on; the disk here is not for that.
keep_what_is_said() {
    head -c 9999 >"$1"
    cat >/dev/null
}

# To all at once. Sets `failed` for every server that was not reached to the
# end, and tells what was said first of it.
push_to_all() {
    local number jobs=()
    mkdir "$work/said"
    export RSYNC_RSH=${RSYNC_RSH:-"ssh -o BatchMode=yes -o LogLevel=ERROR -o ConnectTimeout=$silence \
-o ServerAliveInterval=$silence -o ServerAliveCountMax=1"}
    for number in "${!places[@]}"; do
        # Waited for as one: of the two, only the first can fail.
        (push_to "${places[number]}" 2>&1 >/dev/null | keep_what_is_said "$work/said/$number") &
        jobs+=($!)
    done
    for number in "${!places[@]}"; do
        wait "${jobs[number]}" || {
            failed[number]=1
            printf 'Not pushed: %s: %s\n' "${places[number]}" \
                "$(sed -n '/./{p;q}' "$work/said/$number" | presentable)"
        }
    done
}

# What they serve now, if anything is known of where.
ask_those_pushed_to() {
    local number
    for number in "${!places[@]}"; do
        if [[ -n ${failed[number]:-} ]]; then
            continue
        elif [[ -n ${urls[number]} ]]; then
            ask_servers "${urls[number]}"
        else
            printf 'Not asked: %s, for which no URL is given\n' "${places[number]}"
            sound=$((sound + 1))
        fi
    done
}

push() {
    local damages=0 where='' version oldest here silence=60 sound=0 places=() urls=() failed=() public
    local content_host links_host mirror_host link_secret certificate certificate_key
    open_home "$1"
    shift
    recall_site_options
    read_push_arguments "$@"
    ((${#places[@]})) || misuse "push needs a SERVER, or a list of them in $home/push.servers"
    [[ -n $(type -P rsync) ]] || fail "rsync is missing; install rsync"
    ready_to_ask push "${urls[@]}"
    lock_home
    oldest_version
    refuse_to_push_damage
    here=$version
    public=("$home/./site/")
    ! compgen -G "$home/mirror/*" >/dev/null || public+=("$home/./mirror/")
    push_to_all
    ask_those_pushed_to
    ((sound == ${#places[@]})) ||
        fail "version $here is on $sound of $(counted "${#places[@]}" server); push again when the others are well"
    printf 'Version %s is on %s.\n' "$here" "$(counted "$sound" server)"
}
