# shellcheck shell=bash disable=SC2154
# Whether those who must read what is published can, and nobody else can change it.

# Whether nginx's workers have this right to a path ("r", or "xst" to enter a
# folder): by its group where nginx is on this computer, or as anybody.
nginx_may() {
    local right=$1 mode group user
    read -r mode group < <(stat -c '%A %g' "$2")
    [[ ${mode:7:3} != *[$right]* ]] || return 0
    [[ ${mode:4:3} == *[$right]* ]] || return 1
    for user in www-data nginx; do
        [[ " $(id -G "$user" 2>/dev/null) " != *" $group "* ]] || return 0
    done
    return 1
}

# Folders above the home matter where nginx serves it from this computer, for
# which `site` was asked once.
check_path() {
    local path=$home
    [[ -f $site_settings ]] || return 0
    while [[ -n $path ]]; do
        path=${path%/*}
        nginx_may xst "${path:-/}" || damage "${path:-/} is closed to nginx, and all below it; chmod o+x it"
    done
}

check_access() {
    local path
    check_path
    while read -r path; do
        if [[ -d $path ]]; then
            nginx_may xst "$path" || damage "$path is closed to nginx; chmod o+rx it"
        else
            nginx_may r "$path" || damage "$path cannot be read by nginx; chmod o+r it"
        fi
    done < <({
        find "$home" -maxdepth 0 ! -perm -o=x
        find "$site" "$home/mirror" \( -type d ! -perm -o=x -o -type f ! -perm -o=r \)
    } 2>/dev/null)
    while read -r path; do
        damage "$path can be changed by anybody; chmod o-w it"
    done < <(foreign_files ! -type l -perm -o=w; find "$home/mirror" ! -type l -perm -o=w)
    [[ $(stat -c %a "$lock") == 600 ]] || damage "$lock can be held by others; chmod 600 it"
}

# Installations without databases take whatever the mirror gives them.
check_mirror() {
    local file
    for file in "$home"/mirror/*; do
        [[ -f $file ]] || continue
        if [[ ! -s $file ]]; then
            damage "mirror/${file##*/} is empty"
        elif [[ $file == *.c[lvu]d ]] && ! read_header "$file"; then
            damage "mirror/${file##*/} has no header of a container"
        fi
    done
}
