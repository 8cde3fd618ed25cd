# shellcheck shell=bash disable=SC2154
# Time-limited links, signed as installations sign them.

# The link of every path on standard input, valid for some seconds (negative:
# for a moment that is past). One digest is 22 characters of Base64: 16 bytes
# that are filled up to 18 come out as 24.
signed_links() {
    local seconds=$1 secret=$2 expiry path number=0 paths=() folder=$work/links
    expiry=$(($(date +%s) + seconds))
    rm -rf "$folder"
    mkdir "$folder"
    while read -r path; do
        printf '%s%s%s' "$secret" "$path" "$expiry" >"$folder/$(printf %06d "$number")"
        paths+=("$path")
        number=$((number + 1))
    done
    find "$folder" -type f -print0 | sort -z | xargs -0 md5sum | sed 's/^\(.\{32\}\).*/\U\1\E0000/' |
        basenc --base16 -d -i | basenc --base64url -w 24 | cut -c -22 | while read -r token; do
        printf 'https://%s/%s/%s%s\n' "$links_host" "$token" "$expiry" "${paths[0]}"
        paths=("${paths[@]:1}")
    done
}
