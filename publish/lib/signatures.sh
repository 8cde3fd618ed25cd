# shellcheck shell=bash disable=SC2154
# The vendor's DSA key pair, and signatures made and checked with it.

# The program holds its key as one line of exactly this many characters.
readonly ONE_LINE_KEY_LENGTH=1158

one_line() {
    tr -d '\n' <"$1"
}

# A number whose top bit is set takes one byte more in a key. About one pair in
# four comes out longer than the line may be, and is drawn again.
make_keys() {
    local line
    umask 077
    line=
    until ((${#line} == ONE_LINE_KEY_LENGTH)); do
        {
            openssl genpkey -genparam -algorithm DSA -pkeyopt dsa_paramgen_bits:2048 \
                -pkeyopt dsa_paramgen_q_bits:160 -out "$work/parameters.pem" &&
                openssl genpkey -paramfile "$work/parameters.pem" -out "$work/private.pem" &&
                openssl pkey -in "$work/private.pem" -pubout -out "$work/public.pem"
        } 2>"$work/report" || fail "openssl made no key" "$(<"$work/report")"
        line=$(one_line "$work/public.pem")
    done
    umask 022
    printf '%s' "$line" >"$work/one-line"
    chmod 0644 "$work/public.pem"
    sync "$work/private.pem" "$work/public.pem" "$work/one-line"
    mv "$work/one-line" "$one_line_key"
    mv "$work/public.pem" "$public_key"
    # Last: its presence is what makes a folder a publishing home.
    mv "$work/private.pem" "$private_key"
}

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
