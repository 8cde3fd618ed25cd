# shellcheck shell=bash disable=SC2154
# The nginx configuration that serves the public tree.

site_usage() {
    cat <<'END'
Usage: tarnwick-publish [--home DIR] site [OPTION...]

Prints three TLS servers for nginx's http block. The hosts and the secret must
be those that Tarnwick was built with; the values here are its defaults. What is
given once is remembered in the home, for the next time and for check --from.

  --content-host HOST     plain URLs                 (content.vestrum.example)
  --links-host HOST       time-limited signed links    (links.vestrum.example)
  --mirror-host HOST      whole upstream databases    (mirror.vestrum.example)
  --link-secret TEXT      secret shared with Tarnwick               (Kesto-Ra)
  --certificate FILE      certificate chain, PEM    (tls/certificate.pem in DIR)
  --certificate-key FILE  its private key, PEM               (tls/key.pem in DIR)
END
}

read_site_options() {
    while (($#)); do
        [[ $1 != --help ]] || { usage_of "${command_line[0]}"; exit 0; }
        [[ ${1%%=*} =~ ^--((content|links|mirror)-host|link-secret|certificate(-key)?)$ ]] ||
            misuse "${command_line[0]}: no such option: ${1%%=*}"
        [[ $1 == *=* || $# -gt 1 ]] || misuse "${command_line[0]}: $1 needs a value"
        [[ $1 == *=* ]] || set -- "$1=$2" "${@:3}"
        case $1 in
        --content-host=*) content_host=${1#*=} ;;
        --links-host=*) links_host=${1#*=} ;;
        --mirror-host=*) mirror_host=${1#*=} ;;
        --link-secret=*) link_secret=${1#*=} ;;
        --certificate=*) certificate=${1#*=} ;;
        --certificate-key=*) certificate_key=${1#*=} ;;
        esac
        shift
    done
}

# What `site` was told, for whoever asks the servers later. Its presence tells
# that the tree is served from this computer.
remember_site_options() {
    local name
    rm -f -- "$site_settings.new"
    (umask 077; for name in content_host links_host mirror_host link_secret; do
        printf '%s=%s\n' "$name" "${!name}"
    done >"$site_settings.new")
    mv "$site_settings.new" "$site_settings"
}

# Only what is certainly missing: the owner of the home may have no right to look
# at the certificates, which nginx reads as root.
is_missing() {
    [[ $(stat -L -- "$1" 2>&1 >/dev/null) == *"No such file"* ]]
}

# As remembered, or else as Tarnwick is built when nobody says otherwise.
recall_site_options() {
    local name value
    content_host=content.vestrum.example links_host=links.vestrum.example
    mirror_host=mirror.vestrum.example link_secret=Kesto-Ra
    certificate=$home/tls/certificate.pem certificate_key=$home/tls/key.pem
    [[ -r $site_settings ]] || return 0
    while IFS='=' read -r name value; do
        case $name in
        content_host | links_host | mirror_host | link_secret) printf -v "$name" %s "$value" ;;
        esac
    done <"$site_settings"
}

# A value that ends a string or names a variable would change what nginx reads.
plain_values() {
    local value
    for value in "$content_host" "$links_host" "$mirror_host" "$link_secret"; do
        [[ $value =~ ^[[:alnum:]._-]+$ ]] ||
            fail "\"$value\" cannot be used as a host name or secret: letters, digits, . _ - only"
    done
    for value in "$home" "$certificate" "$certificate_key"; do
        [[ $value != *[\"\$\\]* ]] || fail "$value holds a character that nginx reads differently"
    done
}

print_server() {
    cat <<END
server {
    listen 443 ssl;
    listen [::]:443 ssl;
    server_name $1;
    ssl_certificate "$certificate";
    ssl_certificate_key "$certificate_key";
    root "$2";
    default_type application/octet-stream;
    types { }
    # Bodies as they lie on the disk: with their length and their date.
    gzip off;
    # A remembered file could outlive the release that replaced it.
    open_file_cache off;
    add_header Cache-Control no-cache;
$3
}
END
}

content_locations() {
    cat <<'END'
    location ~ "^/VestRUM2/Vestrum\.[a-z0-9.]+$" { }
    location / { return 404; }
END
}

links_locations() {
    cat <<END
    location ~ "^/(?<token>[A-Za-z0-9_-]+)/(?<expiry>[0-9]+)(?<path>/VestRUM2/Scripted/VestRUM[A-Za-z0-9.-]*)\$" {
        secure_link \$token,\$expiry;
        secure_link_md5 "$link_secret\$path\$expiry";
        if (\$secure_link = "") { return 403; }
        if (\$secure_link = "0") { return 410; }
        try_files \$path =404;
    }
    location / { return 403; }
END
}

# One name for each file: what lies behind the links is nobody's to ask for.
mirror_locations() {
    cat <<'END'
    location ~ "^/(current|sets)(/|$)" { return 404; }
    location / { try_files $uri =404; }
END
}

print_site() {
    local content_host links_host mirror_host link_secret certificate certificate_key
    locate "$1"
    [[ ! -d $home ]] || work_as_owner
    shift
    recall_site_options
    read_site_options "$@"
    plain_values
    [[ ! -f $private_key ]] || remember_site_options
    ! is_missing "$certificate" && ! is_missing "$certificate_key" ||
        echo "tarnwick-publish: nginx will need $certificate and $certificate_key; see site --help" >&2
    echo "# Include this file from nginx's http block."
    print_server "$content_host" "$site" "$(content_locations)"
    print_server "$links_host" "$site" "$(links_locations)"
    print_server "$mirror_host" "$home/mirror" "$(mirror_locations)"
}
