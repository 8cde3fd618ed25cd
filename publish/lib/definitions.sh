# shellcheck shell=bash disable=SC2154
# The definitions file Vestrum.database: published and withdrawn.

publish_pair() {
    local file=$1 number link=$tree/current
    number=$(($(number_behind "$link") + 1))
    sweep_others "$site/definitions" "$link"
    mkdir "$work/pair"
    cp --no-preserve=all -- "$file" "$work/pair/Vestrum.database"
    sign "$work/pair/Vestrum.database"
    [[ ! -e $link/Vestrum.database ]] || date_after "$work/pair" "$link"
    sync "$work"/pair/* "$work/pair"
    mv -T "$work/pair" "$site/definitions/$number"
    switch_link "../definitions/$number" "$link"
    sweep_others "$site/definitions" "$link"
}

# Whether this is out already: published again, it would be fetched again by
# every installation.
published_already() {
    cmp -s -- "$1" "$tree/Vestrum.database" && signature_is_good "$tree/Vestrum.database" || return 1
    sweep_others "$site/definitions" "$tree/current"
}

# An installation takes Vestrum.database whatever the scanner says, because its
# extension tells ClamAV nothing. The name it has here may tell.
try_definitions() {
    local name=$1 file=$2 kind=${1##*.}
    case $kind in
    db | hdb | hdu | hsb | hsu | mdb | mdu | msb | msu | ndb | ndu | ldb | ldu | sdb | fp | sfp | idb | cdb | \
        crb | gdb | pdb | wdb | ign | ign2 | ftm | cbc | yar | yara | cud | cvd) ;;
    *) return 1 ;;
    esac
    cp --no-preserve=all -- "$file" "$work/definitions.$kind"
    try_as_installations_do "$work/definitions.$kind" || fail "$name is not published: $(why_refused)"
    rm "$work/definitions.$kind"
}

publish_definitions() {
    local tried="tried with ClamAV as a .${2##*.} file"
    open_home "$1"
    [[ ! -L $2 ]] || fail "$2 is a link; name the file itself"
    [[ -f $2 && -r $2 ]] || fail "$2 is not a file that can be read by $(id -un)"
    refuse_home "$2"
    lock_to_publish
    take_copy "$2" "$work/given"
    [[ -s $work/given ]] || fail "$2 is empty, and an empty definitions file means withdrawal" \
        "if that is meant: tarnwick-publish --home $1 withdraw"
    if published_already "$work/given"; then
        echo "Nothing new: this definitions file is published already."
        return 0
    fi
    try_definitions "$2" "$work/given" || tried="not tried: its name tells no kind that ClamAV knows"
    publish_pair "$work/given"
    printf 'Published Vestrum.database, %s, %s.\n' "$(counted "$(stat -Lc %s "$tree/Vestrum.database")" byte)" "$tried"
}

# An empty file tells every installation to delete its own. It must stay
# published: a missing file would tell them nothing.
withdraw_definitions() {
    open_home "$1"
    lock_to_publish
    : >"$work/nothing"
    if published_already "$work/nothing"; then
        echo "Nothing new: Vestrum.database is withdrawn already."
        return 0
    fi
    publish_pair "$work/nothing"
    echo "Withdrew Vestrum.database; installations delete theirs at their next run."
}
