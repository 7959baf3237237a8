#!/usr/bin/env bash
# tabledb-feed at its defaults: transactions per second of this tree against a
# base commit, both run in this session with the same options for the same
# time, in turns. The base is unpacked and built apart under the temporary
# directory (never in this tree), once per commit.
#
# Usage: bench/feed_compare.sh [base commit] [seconds per run] [rounds]
#   base commit  default dbb3d36, the commit before the hot-path rework
#   seconds      default 20
#   rounds       default 3; each round runs the base, then this tree
# Environment: BUILD_DIR (this tree's build, default build), FEED_ARGS (more
# options for both feeds), TMPDIR.
set -euo pipefail

base=${1:-dbb3d36}
seconds=${2:-20}
rounds=${3:-3}
root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$root/build}
case "$build" in /*) ;; *) build=$root/$build ;; esac
tmp=${TMPDIR:-/tmp}
jobs=${JOBS:-2}

sha=$(git -C "$root" rev-parse --short=12 "$base^{commit}")
base_tree=$tmp/tabledb-feed-base-$sha
base_build=$base_tree-build
if [ ! -f "$base_tree/CMakeLists.txt" ]; then
    mkdir -p "$base_tree"
    git -C "$root" archive "$sha" | tar -x -C "$base_tree"
fi
for dir in "$base_tree:$base_build" "$root:$build"; do
    src=${dir%%:*}
    out=${dir#*:}
    if [ ! -f "$out/CMakeCache.txt" ]; then
        cmake -S "$src" -B "$out" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
            -DTABLEDB_BUILD_TESTS=OFF -DTABLEDB_BUILD_BENCHMARKS=OFF >/dev/null
    fi
    cmake --build "$out" -j "$jobs" --target tabledb-feed >/dev/null
done

work=$(mktemp -d "$tmp/feed-compare.XXXXXX")
trap 'rm -rf "$work"' EXIT

# Transactions per second of one run, from its summary.
run() {
    local program=$1 name=$2
    "$program" --quiet --seconds "$seconds" --data "$work/$name" \
        --summary-json "$work/$name.json" ${FEED_ARGS:-} >/dev/null
    grep -o '"tx_per_s": *[0-9.e+-]*' "$work/$name.json" | sed 's/.*: *//'
}

base_all=()
this_all=()
for ((i = 1; i <= rounds; ++i)); do
    b=$(run "$base_build/tools/tabledb-feed" base)
    t=$(run "$build/tools/tabledb-feed" this)
    base_all+=("$b")
    this_all+=("$t")
    printf 'round %d: base %.0f, this tree %.0f transactions/s\n' "$i" "$b" "$t"
done

# The median of each side, and their ratio.
median() { printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
mb=$(median "${base_all[@]}")
mt=$(median "${this_all[@]}")
printf 'tabledb-feed, %s s runs, median of %d: base %s %.0f, this tree %.0f transactions/s, ratio %.2f\n' \
    "$seconds" "$rounds" "$sha" "$mb" "$mt" "$(echo "$mt / $mb" | bc -l)"
