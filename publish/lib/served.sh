# shellcheck shell=bash disable=SC2034,SC2154
# The tree as servers give it out, asked for as installations do.

readonly SCRIPTED_PATH=/VestRUM2/Scripted DATABASE_PATH=/VestRUM2/Vestrum.database
# So many files are asked for in one go; the links must not expire meanwhile.
readonly BATCH=200 LINK_SECONDS=600

# Fetches "URL FILE" lines over one connection into $served; prints four lines for
# each, which `read_answer` reads. No line names the file: what a server answers
# must not choose it.
fetch() {
    local url file
    while read -r url file; do
        printf 'url = "%s"\noutput = "%s"\n' "$url" "$served/$file"
    done >"$work/requests"
    curl -sS --create-dirs --connect-timeout 15 --speed-limit 1 --speed-time 60 "${connect[@]}" "$@" \
        -w '%{http_code}\n%header{content-length}\n%header{last-modified}\n%{errormsg}\n' \
        -K "$work/requests" 2>/dev/null || true
}

read_answer() {
    status='' length='' modified='' error=''
    IFS= read -r status && IFS= read -r length && IFS= read -r modified && IFS= read -r error
}

# What must be there, with a length and a date, under a name of ours. A file
# that is refused is not kept, so that it counts as missing.
fetch_published() {
    local requests status length modified error number=0 file
    mapfile -t requests
    while ((number < ${#requests[@]})) && read_answer; do
        file=${requests[number]##* }
        number=$((number + 1))
        if [[ -n $error ]]; then
            damage "${file##*/} cannot be fetched: $error"
        elif [[ $status != 200 ]]; then
            damage "${file##*/} is answered with status $status"
        elif [[ -z $length ]]; then
            damage "${file##*/} comes without a length"
        elif [[ -z $modified ]]; then
            damage "${file##*/} comes without a date"
        else
            continue
        fi
        rm -f "$served/$file"
    done < <(printf '%s\n' "${requests[@]}" | fetch)
}

# Files of the links host, in as many goes as their links stay good for.
fetch_scripted() {
    local batch
    while (($#)); do
        batch=("${@:1:BATCH}")
        shift "${#batch[@]}"
        fetch_published < <(paste -d ' ' \
            <(printf "$SCRIPTED_PATH/%s\n" "${batch[@]}" | signed_links "$LINK_SECONDS" "$link_secret") \
            <(printf 'Scripted/%s\n' "${batch[@]}"))
    done
}

# One request that must be refused, with one of these statuses.
expect_refusal() {
    local wanted=$1 what=$2 url=$3 status length modified error
    rm -f "$served/refused"
    read_answer < <(fetch <<<"$url refused") || true
    [[ " $wanted " == *" $status "* ]] ||
        damage "$what is answered with status $status, and should be with ${wanted%% *}"
    [[ $status == 200 ]] || check_error_page "$what"
}

# Installations take the number behind the first ":" of any answer for the version
# that is out, and would fetch the whole container at every run.
check_error_page() {
    local page
    page=$(head -c 99999 "$served/refused" 2>/dev/null | tr -d '\0') || return 0
    [[ $page == *:* && ${page#*:} =~ ^[[:space:]]*\+?0*[1-9] ]] || return 0
    damage "$1 is answered with a page that installations read as a version: \":\" and a number behind it"
}

check_guards() {
    local path=$SCRIPTED_PATH/VestRUM-db-version.txt
    expect_refusal 403 "a link without a signature" "https://$links_host$path"
    expect_refusal 403 "a link signed with another secret" \
        "$(signed_links "$LINK_SECONDS" "not-$link_secret" <<<"$path")"
    expect_refusal "404 403 410" "a name that does not exist" \
        "$(signed_links "$LINK_SECONDS" "$link_secret" <<<"$SCRIPTED_PATH/VestRUM-0.script")"
    expect_refusal 410 "a link that has expired" "$(signed_links -60 "$link_secret" <<<"$path")"
}

# Installations compare dates, so that servers must not differ in them.
check_database_date() {
    local status length modified error here
    here=$(date -u -d "@$(stat -Lc %Y "$home/site$DATABASE_PATH")" '+%a, %d %b %Y %H:%M:%S GMT')
    read_answer < <(fetch -I <<<"https://$content_host$DATABASE_PATH headers") || true
    [[ $status != 200 || $modified == "$here" ]] ||
        damage "Vestrum.database is dated $modified, and here $here: copy it with its date"
    [[ $status != 200 || $length == "$(stat -Lc %s "$home/site$DATABASE_PATH")" ]] ||
        damage "Vestrum.database is announced with $length bytes, which is not its length here"
}

# What one server gives out, into a tree of its own that is checked like ours.
check_server() {
    local url=$1 server connect=() served=$work/served version number names=(VestRUM-db-version.txt)
    local here=$2 tree=$work/served scripted=$work/served/Scripted
    where="${url#https://}: "
    where=${where//\//}
    server=${where%: }
    rm -rf "$served" "$work/replay" "$work/published"
    mkdir -p "$scripted"
    if [[ $server != "$links_host" && $server != "$content_host" ]]; then
        [[ $server == *:* ]] || server+=:443
        connect=(--connect-to "$links_host:443:$server" --connect-to "$content_host:443:$server")
    fi
    fetch_scripted "${names[@]}"
    [[ -f $scripted/VestRUM-db-version.txt ]] || return 0
    check_guards
    names=(VestRUM.cud VestRUM.cud.signature)
    for ((number = oldest + 1; number <= here; number++)); do
        names+=("VestRUM-$number.script" "VestRUM-$number.script.signature")
    done
    fetch_scripted "${names[@]}"
    if [[ -e $home/site/VestRUM2/current ]]; then
        fetch_published < <(printf 'https://%s%s %s\n' "$content_host" "$DATABASE_PATH" Vestrum.database \
            "$content_host" "$DATABASE_PATH.signature" Vestrum.database.signature)
        check_database_date
    fi
    check_published
    ((version == here)) || damage "version $version is served, and version $here is published"
}

# Before anything is done for COMMAND: whether these URLs could be asked at all.
# An empty one stands for none.
ready_to_ask() {
    local command=$1 url
    shift
    plain_values
    for url; do
        [[ -n $url ]] || continue
        [[ $url =~ ^https://[A-Za-z0-9._-]+(:[0-9]+)?/?$ ]] || misuse "$command wants https://HOST, not $url"
        [[ -n $(type -P curl) ]] || fail "curl is missing; install curl"
    done
}

# Counts those in `sound` with which nothing is wrong.
ask_servers() {
    local url before
    for url; do
        before=$damages
        check_server "$url" "$here"
        ((damages > before)) || sound=$((sound + 1))
    done
}

check_served() {
    local damages=0 where='' oldest sound=0 here urls=()
    local content_host links_host mirror_host link_secret certificate certificate_key
    open_home "$1"
    shift
    recall_site_options
    while (($#)); do
        case $1 in
        --from) (($# > 1)) || misuse "check: --from needs a URL"; urls+=("$2"); shift 2 ;;
        --from=*) urls+=("${1#*=}"); shift ;;
        https://*) urls+=("$1"); shift ;;
        *) break ;;
        esac
    done
    read_site_options "$@"
    ready_to_ask "check: --from" "${urls[@]}"
    lock_home
    oldest_version
    read_header "$scripted/VestRUM.cud" || fail "nothing is released yet" \
        "begin with: tarnwick-publish --home $home release FOLDER"
    here=${header[2]}
    ask_servers "${urls[@]}"
    ((damages == 0)) || fail "$(counted "$damages" thing) found; copy the public tree to that server again"
    printf 'All is well: version %s from %s.\n' "$here" "$(counted "${#urls[@]}" server)"
}
