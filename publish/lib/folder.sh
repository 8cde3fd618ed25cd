# shellcheck shell=bash disable=SC2154
# The vendor's folder of signature files, on its way into a container.

# What is published is read by everybody. So nothing of the home is, and of a file
# that could be exchanged at any moment a copy is judged, and published.
refuse_home() {
    [[ $1/ != "$home"/* ]] || fail "$1 lies in the publishing home, of which nothing is published; keep it elsewhere"
}

take_copy() {
    dd if="$1" of="$2" iflag=nofollow,nonblock bs=1M status=none || fail "$1 cannot be copied"
    ! cmp -s -- "$2" "$private_key" || fail "$1 is the private key, which is never published"
}

# A container takes one file of each kind, named like itself. Files of the same
# kind are joined, so that a folder may hold any number of them. The array
# `origins` keeps which lines came from where: kind, first line, file.
gather() {
    local folder=$1 file files=()
    refuse_home "$folder"
    shopt -s nullglob
    for file in "$folder"/*; do
        [[ ! -L $file ]] || fail "$file is a link; put the file itself there"
        [[ -f $file ]] || fail "$file is not a file; a release is made of the files of one folder"
        [[ ${file##*/} == COPYING ]] || files+=("$file")
    done
    ((${#files[@]})) || fail "$folder holds no signature files, such as threats.hdb or threats.ndb"
    origins=()
    for file in "${files[@]}"; do
        take_in "$file"
    done
    if [[ -f $folder/COPYING ]]; then take_copy "$folder/COPYING" new/COPYING; else : >new/COPYING; fi
}

take_in() {
    local file=$1 kind=${1##*.} joined lines=0
    [[ ${file##*/} == *.* ]] || fail "$file has no extension, so ClamAV cannot know what it holds"
    case $kind in
    info | cud) fail "$file would be lost: sigtool writes a .$kind of its own; remove it from the folder" ;;
    esac
    [[ -r $file ]] || fail "$file cannot be read by $(id -un)"
    joined=new/VestRUM.$kind
    [[ ! -f $joined ]] || lines=$(wc -l <"$joined")
    origins+=("$kind $((lines + 1)) $file")
    # sigtool compares no lines that end in a carriage return; and a last line
    # without a line feed would swallow the first of the next file.
    take_copy "$file" taken
    sed -e 's/\r$//' -e "\$a\\" taken >>"$joined"
    rm taken
}

# The vendor's file and line that became this line of the joined file.
origin_of() {
    local kind=$1 line=$2 origin its_kind from path first='' file=''
    for origin in "${origins[@]}"; do
        read -r its_kind from path <<<"$origin"
        if [[ $its_kind == "$kind" ]] && ((from <= line)); then
            first=$from
            file=$path
        fi
    done
    [[ -z $file ]] || printf '%s line %s' "$file" "$((line - first + 1))"
}

# An unknown extension is passed over by sigtool without a word.
nothing_left_out() {
    local file origin
    for file in new/VestRUM.*; do
        case $file in
        */VestRUM.cud | */VestRUM.info) continue ;;
        esac
        ! grep -q "^${file##*/}:" new/VestRUM.info || continue
        origin=$(origin_of "${file##*.}" 1)
        fail "${origin% line 1} cannot be released: ClamAV takes no files of the kind .${file##*.} into a container" \
            "remove it from the folder"
    done
}

# ClamAV speaks of the joined file; the vendor knows only what went into it.
refuse_signatures() {
    local next=$1 kind line place reason
    kind=$(sed -n 's/.*VestRUM\.\([A-Za-z0-9]*\).*/\1/p;T;q' "$work/report")
    line=$(sed -n 's/.*[Ll]ine \([0-9]\+\).*/\1/p;T;q' "$work/report")
    reason=$(first_error "$work/report" | sed 's/^LibClamAV Error: //; s/ at line [0-9]*$//')
    if [[ $kind && ! -s new/VestRUM.$kind ]]; then
        place=$(origin_of "$kind" 1)
        fail "ClamAV refuses ${place% line 1}, which is empty; version $next is not released" \
            "remove it from the folder"
    fi
    [[ -z $kind || -z $line ]] || place=$(origin_of "$kind" "$line")
    [[ -n ${place:-} ]] || fail "ClamAV refuses these signatures; version $next is not released" "$reason"
    fail "ClamAV refuses $place; version $next is not released" \
        "there stands: $(sed -n "${line}p" "new/VestRUM.$kind" | cut -c -100)" "$reason"
}
