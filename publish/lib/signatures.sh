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
    base64 -d "$1.signature" >"$work/raw-signature" 2>/dev/null || return 1
    digest "$1" | openssl dgst -sha1 -verify "$public_key" -signature "$work/raw-signature" >/dev/null 2>&1
}
