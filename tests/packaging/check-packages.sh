#!/usr/bin/env bash
# Checks the Debian packages that scripts/package builds.
#   tests/packaging/check-packages.sh <folder with the .deb files> <amd64|arm64> [--install]
# Metadata (name, version from the service's version stamp, architecture, Depends computed from
# the shared libraries), contents (programs, the ten light-type descriptions, the dump collector
# note; the tools only in -tools) and the binaries themselves (architecture, stripped).
# --install: every Depends of the service package must be installed on this machine; the
# package is then installed with dpkg into a throwaway root (its own dpkg database; the
# libraries come from this machine's root) and the service is started from there until it logs
# its start line, then stopped with SIGINT. For arm64 that needs qemu-user registered with
# binfmt_misc (scripts/cross does it).
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
dir=$1
arch=$2
install=${3:-}
failures=0
fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}

stamp=$(sed -n 's/.*kVersionStampPrefix\[\] = "\$Version: \([0-9.]*\) build \([0-9]*\) .*/\1+build\2/p' \
    "$repo/common/crashhandler.cpp")
service="$dir/huecontroller_${stamp}_${arch}.deb"
tools="$dir/huecontroller-tools_${stamp}_${arch}.deb"
for deb in "$service" "$tools"; do
    [ -f "$deb" ] || { echo "FAIL: no $deb (have: $(ls "$dir"))" >&2; exit 1; }
done

field() { dpkg-deb --field "$1" "$2"; }
for deb in "$service" "$tools"; do
    [ "$(field "$deb" Version)" = "$stamp" ] || fail "$deb: version $(field "$deb" Version), not $stamp"
    [ "$(field "$deb" Architecture)" = "$arch" ] || fail "$deb: architecture $(field "$deb" Architecture)"
done
[ "$(field "$service" Package)" = huecontroller ] || fail "service package named $(field "$service" Package)"
[ "$(field "$tools" Package)" = huecontroller-tools ] || fail "tools package named $(field "$tools" Package)"

# Listings are read into variables first: with pipefail, "grep -q" ending a pipe early would
# fail the writer with SIGPIPE.
# Depends: what dpkg-shlibdeps found in the binaries' dynamic sections, with versions.
depends_of() { field "$1" Depends | tr ',' '\n' | sed 's/^ *//; s/ *(.*//'; }
service_depends=$(depends_of "$service")
tools_depends=$(depends_of "$tools")
for lib in libc6 libstdc++6 libqt5core5a libqt5network5 libqt5xml5; do
    grep -qx "$lib" <<<"$service_depends" || fail "service Depends lacks $lib: $(field "$service" Depends)"
done
for lib in libqt5sql5 libqt5sql5-sqlite libssl3 libcpp-httplib0.11; do
    grep -qx "$lib" <<<"$tools_depends" || fail "tools Depends lacks $lib: $(field "$tools" Depends)"
done
description=$(field "$service" Description)
grep -q "dump-collector" <<<"$description" || fail "the description does not name the dump collector"

contents() { dpkg-deb --contents "$1" | awk '{print $6}' | sed 's|^\./|/|'; }
service_files=$(contents "$service")
tools_files=$(contents "$tools")
expect=(/usr/bin/huecontroller /usr/share/doc/huecontroller/README.dump-collector)
for f in "$repo"/huecontroller/data/hue/*.xml; do
    expect+=("/usr/share/huecontroller/hue/$(basename "$f")")
done
[ ${#expect[@]} -eq 12 ] || fail "expected ten light-type descriptions in the source, found $((${#expect[@]} - 2))"
for f in "${expect[@]}"; do
    grep -qx "$f" <<<"$service_files" || fail "service package lacks $f"
done
for f in /usr/bin/hubsim /usr/bin/hubctl /usr/bin/hue-bridge-emulator; do
    grep -qx "$f" <<<"$tools_files" || fail "tools package lacks $f"
    grep -qx "$f" <<<"$service_files" && fail "service package holds $f"
done

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
dpkg-deb -x "$service" "$tmp/x"
dpkg-deb -x "$tools" "$tmp/x"
case "$arch" in
    arm64) machine="ARM aarch64" ;;
    amd64) machine="x86-64" ;;
    *) machine="$arch" ;;
esac
for program in huecontroller hubsim hubctl hue-bridge-emulator; do
    description=$(file -b "$tmp/x/usr/bin/$program")
    [[ $description == *"$machine"* ]] || fail "$program is not $machine: $description"
    [[ $description == *", stripped"* ]] || fail "$program is not stripped: $description"
done

if [ "$install" = --install ]; then
    # Installable here: every dependency is installed, in at least the version asked for.
    while read -r dep; do
        name=${dep%% *}
        have=$(dpkg-query -W -f='${Version}' "$name:$arch" 2>/dev/null ||
            dpkg-query -W -f='${Version}' "$name" 2>/dev/null || true)
        [ -n "$have" ] || { fail "dependency $name is not installed"; continue; }
        if [[ $dep =~ \((..?)\ (.*)\) ]]; then
            op=${BASH_REMATCH[1]}
            case "$op" in '>=') op=ge ;; '<=') op=le ;; '>>') op=gt ;; '<<') op=lt ;; '=') op=eq ;; esac
            dpkg --compare-versions "$have" "$op" "${BASH_REMATCH[2]}" || fail "$name $have does not meet $dep"
        fi
    done < <(field "$service" Depends | tr ',' '\n' | sed 's/^ *//')

    root="$tmp/root"
    mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates"
    touch "$root/var/lib/dpkg/status"
    # The root's own database, told of the packages' architecture (arm64 beside amd64: the
    # installed aarch64 service then runs under qemu-user through binfmt_misc).
    [ "$arch" = "$(dpkg --print-architecture)" ] || dpkg --root="$root" --add-architecture "$arch"
    # The throwaway root's database knows none of this machine's packages: its dependencies
    # were checked above against this machine's.
    dpkg --root="$root" --force-depends --force-not-root --log=/dev/null -i "$service" >"$tmp/dpkg.log" 2>&1 ||
        { cat "$tmp/dpkg.log" >&2; fail "dpkg could not install $service"; }
    status=$(dpkg --root="$root" -s huecontroller 2>&1 || true)
    grep -q '^Status: install ok installed' <<<"$status" || fail "huecontroller not installed in the throwaway root"
    [ "$(ls "$root/usr/share/huecontroller/hue" | wc -l)" -eq 10 ] || fail "not ten descriptions in the throwaway root"

    config="$tmp/config/vorn"
    mkdir -p "$config" "$tmp/sockets" "$tmp/data"
    printf '[General]\nsocketDir=%s\nsocketType=local\ndata/path=%s\ndata/constpath=%s\n' \
        "$tmp/sockets" "$tmp/data" "$root/usr/share/huecontroller" >"$config/database.conf"
    (cd "$tmp" && exec env XDG_CONFIG_HOME="$tmp/config" PATH="$root/usr/bin:/usr/bin:/bin" \
        "$root/usr/bin/huecontroller" 2>"$tmp/service.err" >/dev/null) &
    pid=$!
    for _ in $(seq 200); do
        grep -qE ' start [0-9]+ [0-9]+$' "$tmp/service.err" 2>/dev/null && break
        kill -0 "$pid" 2>/dev/null || break
        sleep 0.1
    done
    if grep -qE ' start [0-9]+ [0-9]+$' "$tmp/service.err"; then
        echo "installed service started: $(grep -E ' start [0-9]+ [0-9]+$' "$tmp/service.err")"
    else
        fail "the installed service logged no start line: $(head -c 2000 "$tmp/service.err")"
    fi
    kill -INT "$pid" 2>/dev/null || true
    for _ in $(seq 100); do
        kill -0 "$pid" 2>/dev/null || break
        sleep 0.1
    done
    kill -KILL "$pid" 2>/dev/null && fail "the installed service did not end on SIGINT"
    wait "$pid" 2>/dev/null || true
fi

if [ "$failures" -ne 0 ]; then
    echo "check-packages: $failures failures ($arch)" >&2
    exit 1
fi
echo "check-packages: $arch packages are in order ($(basename "$service"), $(basename "$tools"))"
