# shellcheck shell=bash disable=SC2154
# Versions of VestRUM.cud: built, compared with the one before, and published.

# The header of a container, its nine fields in the array `header`.
read_header() {
    local text
    header=()
    [[ -r $1 ]] || return 1
    text=$(head -c 512 "$1" | tr -d '\0')
    IFS=: read -r -a header <<<"$text"
    [[ ${header[0]:-} == ClamAV-VDB && ${header[2]:-} =~ ^[0-9]+$ ]]
}

# The newest published version, 0 before the first release. Whatever stands in
# the tree must make sense before anything is built upon it.
published_version() {
    local container=$scripted/VestRUM.cud version_file=$scripted/VestRUM-db-version.txt
    version=0
    if [[ ! -e $scripted/current ]]; then
        # Counting from 1 again would leave every installation where it is.
        ! compgen -G "$scripted/VestRUM-*.script" >/dev/null ||
            fail "the published container is lost; put it back from a copy of $home"
        return 0
    fi
    { read_header "$container" && [[ $(<"$version_file") == "VestRUM:${header[2]}" ]]; } ||
        fail "the published container and version file do not agree" "see: tarnwick-publish --home $home check"
    version=${header[2]}
}

# A container takes one file of each kind, named like itself. Files of the same
# kind are joined, so that a folder may hold any number of them.
gather() {
    local folder=$1 file kind files=()
    shopt -s nullglob
    for file in "$folder"/*; do
        [[ -f $file ]] || fail "$file is not a file; a release is made of the files of one folder"
        [[ ${file##*/} == COPYING ]] || files+=("$file")
    done
    ((${#files[@]})) || fail "$folder holds no signature files, such as threats.hdb or threats.ndb"
    for file in "${files[@]}"; do
        kind=${file##*.}
        [[ ${file##*/} == *.* ]] || fail "${file##*/} has no extension, so ClamAV cannot know what it holds"
        # sigtool compares no lines that end in a carriage return; and a last line
        # without a line feed would swallow the first of the next file.
        sed -e 's/\r$//' -e "\$a\\" "$file" >>"new/VestRUM.$kind"
    done
    if [[ -f $folder/COPYING ]]; then cp "$folder/COPYING" new/COPYING; else : >new/COPYING; fi
}

# An unknown extension is passed over by sigtool without a word.
nothing_left_out() {
    local file
    for file in new/VestRUM.*; do
        case $file in
        */VestRUM.cud | */VestRUM.info) ;;
        *) grep -q "^${file##*/}:" new/VestRUM.info ||
            fail "ClamAV takes no files of the kind .${file##*.} into a container; remove them from the folder" ;;
        esac
    done
}

build_container() {
    local next=$1
    # An empty data directory, or sigtool counts on from a container it finds there.
    (cd new && SIGNDUSER=vestrum sigtool --build=VestRUM.cud --unsigned --cvd-version="$next" \
        --no-cdiff --datadir="$work/empty") </dev/null >report 2>&1 ||
        fail "ClamAV refuses these signatures; version $next is not released" "$(grep rror report | cut -c -200)"
    nothing_left_out
    clamscan --quiet -d new/VestRUM.cud new/VestRUM.cud >report 2>&1 ||
        fail "ClamAV cannot load the new container; version $next is not released" "$(<report)"
}

# sigtool holds the second path in a few bytes and cuts longer ones: short
# relative paths only.
build_script() {
    local next=$1
    mkdir old
    cp "$scripted/VestRUM.cud" old/VestRUM.cud
    { sigtool --diff old/VestRUM.cud new/VestRUM.cud && test -f "new/VestRUM-$next.script"; } >report 2>&1 ||
        fail "no script leads from version $((next - 1)) to $next; it is not released" "$(<report)"
    mv "new/VestRUM-$next.script" script
    sign script
}

# Nothing is visible before the version file says so, and that, the container
# and its signature become visible together.
put_in_place() {
    local next=$1
    mkdir release
    mv new/VestRUM.cud release/VestRUM.cud
    sign release/VestRUM.cud
    printf 'VestRUM:%s\n' "$next" >release/VestRUM-db-version.txt
    sync release/* release
    if ((next == 1)); then
        cp release/VestRUM.cud first
        mv first "$first_container"
    else
        sync script script.signature
        mv script.signature "$scripted/VestRUM-$next.script.signature"
        mv script "$scripted/VestRUM-$next.script"
    fi
    mv -T release "$site/releases/$next"
    switch_link "../../releases/$next" "$scripted/current"
    sweep_others "$site/releases" "$scripted/current"
}

release() {
    local folder next
    [[ -d $2 ]] || fail "$2 is not a folder of signature files"
    folder=$(readlink -f "$2")
    open_home "$1"
    lock_home
    published_version
    next=$((version + 1))
    sweep_others "$site/releases" "$scripted/current"
    cd "$work" || exit
    mkdir new empty
    gather "$folder"
    build_container "$next"
    ((next == 1)) || build_script "$next"
    put_in_place "$next"
    read_header "$scripted/VestRUM.cud"
    printf 'Released version %s with %s.\n' "$next" "$(counted "${header[3]}" signature)"
}
