#!/bin/sh
# Instructions per parse of each fixture for minijson, RapidJSON's DOM and QJsonDocument, counted
# by callgrind. Each library parses each fixture 0 and N times in json_parse_count; the difference
# divided by N is the cost of one parse, without loading the file or starting the process.
#
# Run: bench/json/callgrind.sh <build dir> [N]    (builds nothing: build json_parse_count first)
set -eu
build=${1:?usage: callgrind.sh <build dir> [parses]}
parses=${2:-50}
here=$(cd "$(dirname "$0")" && pwd)
program=$(find "$build" -name json_parse_count -type f | head -n 1)
[ -x "$program" ] || { echo "json_parse_count not found under $build" >&2; exit 1; }
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# Total instructions of one run of the program.
count() {
    valgrind --tool=callgrind --callgrind-out-file="$scratch/out" "$program" "$1" "$2" "$3" \
        >/dev/null 2>"$scratch/log" || { cat "$scratch/log" >&2; exit 1; }
    sed -n 's/^summary: *//p' "$scratch/out"
}

printf '%-20s %-14s %14s %12s %12s\n' fixture library instr/parse vs_rapidjson vs_qjson
for fixture in clip_v2_lights.json api_v1_lights.json; do
    for library in minijson rapidjson qjsondocument; do
        base=$(count "$library" "$here/fixtures/$fixture" 0)
        full=$(count "$library" "$here/fixtures/$fixture" "$parses")
        echo "$library $(( (full - base) / parses ))" >>"$scratch/$fixture"
    done
    awk -v fixture="$fixture" '
        { cost[$1] = $2; order[NR] = $1 }
        END {
            for (i = 1; i <= NR; ++i) {
                l = order[i]
                # A ratio above 1 means the library needs fewer instructions than the other.
                printf "%-20s %-14s %14d %12.2f %12.2f\n", fixture, l, cost[l],
                       cost["rapidjson"] / cost[l], cost["qjsondocument"] / cost[l]
            }
        }' "$scratch/$fixture"
done
