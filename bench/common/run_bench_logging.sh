#!/bin/sh
# Runs bench_logging in a private mount namespace with a private /dev, so that glibc's syslog()
# (whose /dev/log and /dev/console cannot be chosen) writes to the benchmark's own socket and
# console pipe instead of the machine's. Needs root (unshare -m).
#   bench/common/run_bench_logging.sh build [--benchmark_repetitions=5 ...]
set -eu
build=$1
shift
bench=$(cd "$build" && pwd)/bench/common/bench_logging
exec unshare -m sh -c '
set -eu
work=$(mktemp -d)
mkdir "$work/realdev"
mount --bind /dev "$work/realdev"
mount -t tmpfs tmpfs /dev
for node in null zero random urandom; do
    touch "/dev/$node"
    mount --bind "$work/realdev/$node" "/dev/$node"
done
BENCH_PRIVATE_DEV="$work" exec "$@"
' sh "$bench" "$@"
