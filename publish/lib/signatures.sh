# shellcheck shell=bash disable=SC2154
# Signatures, made and checked with the vendor's key.

digest() {
    openssl dgst -sha1 -binary "$1"
}

# Writes FILE.signature: what is signed is the digest of the file, not the file.
sign() {
    digest "$1" | openssl dgst -sha1 -sign "$private_key" | base64 -w0 >"$1.signature"
}

signature_is_good() {
    base64 -d "$1.signature" 2>/dev/null |
        openssl dgst -sha1 -verify "$public_key" -signature /dev/stdin <(digest "$1") >/dev/null 2>&1
}

# Of the files on standard input, prints those that do not fit their signatures.
unfitting() {
    export -f digest signature_is_good
    # shellcheck disable=SC2016  # for the other shells
    public_key=$public_key xargs -d '\n' -r -n 32 -P "$(nproc)" bash -c '
        set -o pipefail
        for file; do
            signature_is_good "$file" || printf "%s\n" "$file"
        done' verify
}
