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
        find "$site" "$mirror" \( -type d ! -perm -o=x -o -type f ! -perm -o=r \)
    } 2>/dev/null)
    while read -r path; do
        damage "$path can be changed by anybody; chmod o-w it"
    done < <(foreign_files ! -type l -perm -o=w; find "$mirror" ! -type l -perm -o=w)
    [[ $(stat -c %a "$lock") == 600 ]] || damage "$lock can be held by others; chmod 600 it"
}

# Every client that is not too far behind asks for each patch up to the newest.
check_patches() {
    local name=$1 newest=$2 number oldest=$2
    while read -r number; do
        ((number >= oldest)) || oldest=$number
    done < <(patches_of "$name")
    for ((number = oldest; 1 < number && number <= newest; number++)); do
        [[ -e $mirror/$name-$number.cdiff ]] || damage "mirror/$name-$number.cdiff is missing"
    done
}

# What `mirror` put in place.
check_mirrored() {
    local file name
    [[ -L $mirror/current && -d $mirror/current ]] || {
        damage "mirror/current is no link to a set; fill the mirror again"
        return 0
    }
    for file in "$mirror"/current/*; do
        name=${file##*/}
        check_link "$mirror/$name"
        [[ $name == *.cvd ]] || continue
        if container_is_good "$file"; then
            check_patches "${name%.cvd}" "${header[2]}"
        else
            damage "mirror/$name does not fit ClamAV's signature"
        fi
    done
}

# Machines that are promised more than there is end in an error.
check_record() {
    local place name record=()
    [[ ! -f $mirror/dns.txt ]] || IFS=: read -r -a record <"$mirror/dns.txt" || true
    for place in 1:main 2:daily 7:bytecode; do
        name=${place#*:}
        place=${record[${place%:*}]:-}
        [[ $place =~ ^[0-9]+$ ]] || continue
        read_header "$mirror/$name.cvd" || header=(- - 0)
        ((10#$place <= header[2])) || damage "mirror/dns.txt promises $name $place, and there is ${header[2]}"
    done
}

# Installations without databases take whatever the mirror gives them.
check_mirror() {
    local file name
    for file in "$mirror"/*; do
        name=${file##*/}
        [[ -f $file ]] || continue
        if [[ $name == *-*.cdiff ]]; then
            [[ ! -s $file ]] || names_its_version "$file" ||
                damage "mirror/$name is no patch to that version"
        elif [[ ! -s $file ]]; then
            damage "mirror/$name is empty"
        elif [[ $file == *.c[lvu]d ]] && ! read_header "$file"; then
            damage "mirror/$name has no header of a container"
        fi
    done
    [[ ! -e $mirror/current && ! -L $mirror/dns.txt ]] || check_mirrored
    check_record
}
