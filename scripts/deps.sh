#!/bin/bash
# Installs the Debian packages of scripts/packages.txt that are missing.
set -euo pipefail

sets=(build demo test all)

usage() {
    cat <<'TEXT'
usage: scripts/deps.sh [build|demo|test|all]

Installs what is missing, as root or with sudo:

  build  to build the runner and the module
  demo   also the server of scripts/demo.sh
  test   also what scripts/test.sh needs
  all    also what scripts/test.sh --all needs (default)
TEXT
}

# wanted SET: the packages of a set and of those it needs
wanted() {
    local set
    for set in "${sets[@]}"; do
        awk -v set="$set" '$1 == set { print $2 }' "$(dirname "$0")/packages.txt"
        [ "$set" != "$1" ] || return 0
    done
}

missing() {
    local package
    for package; do
        [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || echo "$package"
    done
}

# Keeps the servers among the packages from starting: tests and demo start their own.
forbid_services() {
    local policy=/usr/sbin/policy-rc.d
    [ ! -e "$policy" ] || return 0
    printf '#!/bin/sh\nexit 101\n' >"$policy"
    chmod +x "$policy"
    trap "rm -f $policy" EXIT
}

install() {
    apt-get -qq install -y --no-install-recommends "$@" </dev/null
}

main() {
    local set=${1:-all}
    case $set in
    -h | --help) usage; exit ;;
    build | demo | test | all) [ $# -le 1 ] || { usage >&2; exit 2; } ;;
    *) echo "deps.sh: there is no set '$set'" >&2; usage >&2; exit 2 ;;
    esac

    local packages
    mapfile -t packages < <(wanted "$set")
    if ! command -v apt-get >/dev/null; then
        echo "This needs Debian 12 with these packages: ${packages[*]}" >&2
        exit 1
    fi
    mapfile -t packages < <(missing "${packages[@]}")
    [ ${#packages[@]} -gt 0 ] || return 0

    if [ "$(id -u)" -ne 0 ]; then
        if { [ -t 0 ] && command -v sudo >/dev/null; } || sudo -n true 2>/dev/null; then
            exec sudo "$0" "$set"
        fi
        echo "These packages are missing: ${packages[*]}" >&2
        echo "Install them as root: apt-get install --no-install-recommends ${packages[*]}" >&2
        exit 1
    fi

    echo "Installing ${packages[*]}"
    export DEBIAN_FRONTEND=noninteractive
    forbid_services
    # Lists that are absent or older than the packages they name: fetched once, and then tried again.
    if ! apt-cache show "${packages[@]}" >/dev/null 2>&1 || ! install "${packages[@]}"; then
        apt-get -qq update
        install "${packages[@]}"
    fi
    local server
    for server in lighttpd vsftpd tinyproxy; do
        [[ " ${packages[*]} " != *" $server "* ]] || update-rc.d "$server" disable || true
    done
}

main "$@"
