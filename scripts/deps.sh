#!/bin/bash
# Installs the Debian packages of scripts/packages.txt that are missing.
set -euo pipefail

sets=(build demo test all)
log=/var/log/zel_ogc-packages.log
EX_TEMPFAIL=75

usage() {
    cat <<'TEXT'
usage: scripts/deps.sh [build|demo|test|all]

Installs what is missing, as root or with sudo:

  build  to build the runner, the module and the Debian package
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
    trap 'rm -f /usr/sbin/policy-rc.d' EXIT
}

apt() {
    apt-get -q -o Acquire::Retries=3 -o DPkg::Lock::Timeout=300 "$@" </dev/null >>"$log" 2>&1
}

install() {
    apt install -y --no-install-recommends "$@"
}

# Says why the packages could not be installed. EX_TEMPFAIL: nothing is wrong here, trying again later may help.
explain() {
    if grep -q '^[EW]: .*Failed to fetch' "$log"; then
        echo "deps.sh: packages could not be fetched; is there a connection?" >&2
        grep -m 3 '^[EW]: .*Failed to fetch' "$log" >&2
        exit "$EX_TEMPFAIL"
    fi
    echo "deps.sh: the packages could not be installed; $log ends with" >&2
    tail -n 20 "$log" >&2
    exit 1
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

    echo "Installing ${#packages[@]} package$([ ${#packages[@]} -eq 1 ] || echo s), which may take minutes (log: $log)"
    : >"$log"
    export DEBIAN_FRONTEND=noninteractive
    forbid_services
    # Lists that are absent or older than the packages they name: fetched once, and then tried again.
    if ! apt-cache show "${packages[@]}" >/dev/null 2>&1 || ! install "${packages[@]}"; then
        : >"$log"
        apt update || true
        install "${packages[@]}" || explain
    fi
    local server
    for server in lighttpd vsftpd tinyproxy; do
        [[ " ${packages[*]} " != *" $server "* ]] || update-rc.d "$server" disable >>"$log" 2>&1 || true
    done
}

main "$@"
