# shellcheck shell=bash disable=SC2154
# The vendor's DSA key pair, and whether it is the one that installations trust.

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
    sync "$home"
}

# Names a public key, as the command in `refuse_without_key` does for a copy.
fingerprint() {
    openssl pkey -pubin -in "$1" -outform DER 2>/dev/null | sha256sum | cut -c -64
}

refuse_without_key() {
    local lost="and public.pem, which would tell which, is lost too"
    [[ ! -f $public_key ]] || lost="the one with the fingerprint $(fingerprint "$public_key")"
    fail "the private key of what is published in $home is lost, $lost" \
        "put private.pem back from its copy; this shows a copy's fingerprint:" \
        "  openssl pkey -in COPY -pubout -outform DER | sha256sum" \
        "a new key will not do: every installation would refuse what it signs"
}

# Whether public.pem verifies anything that is published. One damaged signature
# is no sign of another key, and the next release replaces it.
key_fits_what_is_published() {
    local file signed=false
    for file in "$scripted/VestRUM.cud" "$tree/Vestrum.database" "$scripted"/VestRUM-*.script; do
        [[ -f $file && -f $file.signature ]] || continue
        ! signature_is_good "$file" || return 0
        signed=true
    done
    ! $signed
}

# What another key signs is refused by every installation there is.
require_key() {
    [[ -f $private_key ]] || refuse_without_key
    openssl pkey -in "$private_key" -pubout -out "$work/public" 2>/dev/null ||
        fail "private.pem cannot be read as a private key; put it back from its copy"
    [[ -f $public_key ]] || fail "public.pem is missing" \
        "make it anew: openssl pkey -in $private_key -pubout -out $public_key"
    cmp -s "$work/public" "$public_key" ||
        fail "private.pem has the fingerprint $(fingerprint "$work/public")," \
            "and public.pem has $(fingerprint "$public_key")" \
            "put back the pair that Tarnwick was built with"
    key_fits_what_is_published ||
        fail "what is published here was not signed with private.pem," \
            "whose fingerprint is $(fingerprint "$public_key")" \
            "put back the pair that Tarnwick was built with: installations trust no other"
}
