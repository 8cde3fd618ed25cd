# shellcheck shell=bash disable=SC2154
# The definitions file Vestrum.database: published and withdrawn.

publish_pair() {
    local file=$1 previous=0 number link=$tree/current time
    [[ ! -L $link ]] || previous=$(readlink "$link")
    number=$((${previous##*/} + 1))
    sweep_others "$site/definitions" "$link"
    mkdir "$work/pair"
    cp --no-preserve=all -- "$file" "$work/pair/Vestrum.database"
    sign "$work/pair/Vestrum.database"
    # Installations compare times in whole seconds: two publications within
    # one second would look like one.
    if [[ -e $link/Vestrum.database ]]; then
        time=$(($(stat -c %Y "$link/Vestrum.database") + 1))
        ((time <= $(date +%s))) || touch -d "@$time" "$work/pair/Vestrum.database"
    fi
    sync "$work"/pair/* "$work/pair"
    mv -T "$work/pair" "$site/definitions/$number"
    switch_link "../definitions/$number" "$link"
    sweep_others "$site/definitions" "$link"
}

publish_definitions() {
    [[ -f $2 && -r $2 ]] || fail "$2 is not a file that can be read"
    [[ -s $2 ]] || fail "$2 is empty, and an empty definitions file means withdrawal" \
        "if that is meant: tarnwick-publish --home $1 withdraw"
    open_home "$1"
    lock_home
    publish_pair "$2"
    printf 'Published Vestrum.database, %s.\n' "$(counted "$(stat -Lc %s "$tree/Vestrum.database")" byte)"
}

# An empty file tells every installation to delete its own. It must stay
# published: a missing file would tell them nothing.
withdraw_definitions() {
    open_home "$1"
    lock_home
    : >"$work/nothing"
    publish_pair "$work/nothing"
    echo "Withdrew Vestrum.database; installations delete theirs at their next run."
}
