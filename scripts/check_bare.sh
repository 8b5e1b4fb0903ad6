#!/bin/bash
# Follows the README on a bare Debian 12: clones the last commit, runs both commands, makes the Debian package and
# installs it on a second bare system.
#
# The systems are made by debootstrap from the package sources of this machine and are gone afterwards; packages that
# were fetched stay in a cache. Everything runs in separate namespaces: mounts are never seen outside, and vanish with
# every process when the check ends, however it ends.
set -euo pipefail
[[ $* =~ ^(--inside)?$ ]] || { echo "usage: $0" >&2; exit 2; }
cd "$(dirname "$0")/.."

SUITE=bookworm
CACHE=/var/cache/zel_ogc-bare
EX_TEMPFAIL=75

first=$CACHE/systems/first
second=$CACHE/systems/second

fail() {
    echo "check_bare.sh: $*" >&2
    exit 1
}

# attempt COMMAND ...: runs it, and once more when packages could not be fetched
attempt() {
    local status=0
    "$@" || status=$?
    if [ "$status" -eq $EX_TEMPFAIL ]; then
        echo "Packages could not be fetched; once more in half a minute"
        sleep 30
        status=0
        "$@" || status=$?
    fi
    case $status in
    0) ;;
    "$EX_TEMPFAIL")
        echo "check_bare.sh: packages could not be fetched, twice; nothing was found wrong" >&2
        exit $status ;;
    *) fail "this failed with status $status: $*" ;;
    esac
}

# fetching PATTERN COMMAND ...: runs it; a failure whose output matches is due to the connection
fetching() {
    local log=$CACHE/systems/log status=0
    "${@:2}" >"$log" 2>&1 || status=$?
    [ "$status" -ne 0 ] || return 0
    tail -n 20 "$log" >&2
    ! grep -qE "$1" "$log" || return $EX_TEMPFAIL
    return "$status"
}

# configure_apt SYSTEM: where this machine gets its packages from, and how
configure_apt() {
    local path proxy
    rm -f "$1/etc/apt/sources.list"
    for path in /etc/apt/sources.list{,.d} /etc/apt/trusted.gpg{,.d} /etc/apt/keyrings /usr/share/keyrings \
        /etc/resolv.conf /etc/hosts; do
        [ ! -e "$path" ] || cp -rL --parents "$path" "$1"
    done
    {
        apt-config dump Acquire
        for proxy in http https; do
            path=${proxy}_proxy
            [ -z "${!path:-}" ] || echo "Acquire::$proxy::Proxy \"${!path}\";"
        done
        if [ -e /etc/ssl/certs/ca-certificates.crt ]; then
            cp -L /etc/ssl/certs/ca-certificates.crt "$1/etc/apt/certificates.crt"
            echo 'Acquire::https::CaInfo "/etc/apt/certificates.crt";'
        fi
        echo 'APT::Keep-Downloaded-Packages "true";'
        echo 'Binary::apt::APT::Keep-Downloaded-Packages "true";'
    } >"$1/etc/apt/apt.conf.d/99machine"
}

# A Debian base system and nothing else.
bootstrap() {
    local mirror
    mirror=$(apt-get indextargets --format "\$(REPO_URI)" "Created-By: Packages" "Release: $SUITE" | head -n 1)
    [ -n "$mirror" ] || fail "this machine has no package source for $SUITE"
    rm -rf --one-file-system "$first"
    fetching "Failed getting release|Couldn't download|unable to|Invalid Release" \
        debootstrap --variant=minbase --cache-dir="$CACHE/packages" "$SUITE" "$first" "$mirror"
}

mount_all() {
    mount -t proc proc "$1/proc"
    mount -t tmpfs -o mode=1777 shm "$1/dev/shm"
    mount -t devpts -o newinstance,ptmxmode=0666,mode=0620,gid=5 devpts "$1/dev/pts"
    mount --bind "$CACHE/packages" "$1/var/cache/apt/archives"
}

# within SYSTEM COMMAND: a line of shell, run as root with nothing of this machine's environment
within() {
    chroot "$1" env -i HOME=/root PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin TERM=dumb \
        bash -c "cd /root/zel_ogc && $2"
}

# readme SYSTEM COMMAND: a command that the README gives
readme() {
    grep -qF "    $2" "$1/root/zel_ogc/README.md" || fail "README.md does not have the command: $2"
    echo "== $2"
    attempt within "$1" "${2#sudo }"
}

inside() {
    mkdir -p "$CACHE/systems" "$CACHE/packages/partial"
    echo "== a bare $SUITE"
    attempt bootstrap
    configure_apt "$first"
    cp -a "$first" "$second"
    mount_all "$first"
    mount_all "$second"
    git clone -q "$PWD" "$first/root/zel_ogc"

    readme "$first" scripts/demo.sh
    within "$first" "test -s demo-output/map.png -a -s demo-output/coverage.tif" ||
        fail "the demo's files are not there"
    readme "$first" "(cd build && cpack)"
    readme "$first" scripts/test.sh
    ! within "$first" "grep -nE '[0-9]+ skipped|\[  SKIPPED \]|Not Run' build/Testing/Temporary/LastTest.log" ||
        fail "tests were skipped"

    mkdir -p "$second/root/zel_ogc/build"
    cp "$first"/root/zel_ogc/build/*.deb "$second/root/zel_ogc/build"
    echo "== apt install, on another bare $SUITE"
    attempt fetching "Failed to fetch" within "$second" "apt-get update && apt install -y ./build/*.deb"
    within "$second" "cd / && zel --version &&
                      zel -e 'require(\"zel.ogc\") assert(zel.new(\"ZELnetOGCWMS\")):close()' &&
                      test -e /usr/lib/zel/bin/bin.linux.x86_64/ca-bundle.crt" ||
        fail "what was installed does not run"
    chroot "$first" apt-get -qq autoclean
}

if [ "${1:-}" = --inside ]; then
    inside
    exit
fi

if [ "$(id -u)" -ne 0 ]; then
    ! sudo -n true 2>/dev/null || exec sudo -n "$0"
    fail "this needs root, for debootstrap and chroot"
fi
command -v debootstrap >/dev/null || fail "debootstrap is missing; scripts/deps.sh installs it"
unshare --mount --pid --fork true || fail "this needs namespaces; does a container keep it from them (CAP_SYS_ADMIN)?"

mkdir -p "$CACHE"
exec 9>"$CACHE/lock"
flock -n 9 || { echo "Waiting for another run of this check"; flock 9; }

cleanup() {
    # The namespace and all that runs in it end with its first process.
    if [ -e "/proc/$main" ]; then
        kill -KILL "$(cat "/proc/$main/task/$main/children")"
        wait "$main" || true
    fi
    rm -rf --one-file-system "$CACHE/systems"
}
rm -rf --one-file-system "$CACHE/systems"
setpriv --pdeathsig KILL unshare --mount --pid --fork --kill-child "$0" --inside &
main=$!
trap cleanup EXIT
trap 'exit 130' INT TERM
wait "$main"
