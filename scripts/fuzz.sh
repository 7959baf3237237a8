#!/usr/bin/env bash
# Builds the libFuzzer harnesses under fuzz/ with clang, AddressSanitizer and
# UndefinedBehaviorSanitizer, then runs each for SECONDS (default 60) on a copy
# of its seed corpus fuzz/corpus/<harness>/. Exits non-zero when any harness
# finds a crash, a leak, a timeout or a broken property; the input that did it
# is kept under $BUILD_DIR/fuzz-run/<harness>/ (add it to the seed corpus once
# fixed, as a regression input).
#
#   scripts/fuzz.sh [--keep] [SECONDS] [HARNESS...]
#
# --keep merges the new inputs that add coverage into fuzz/corpus/; without it
# the repository is left as it was. HARNESS names (e.g. decimal) limit the run.
# Environment: BUILD_DIR (default build-fuzz), JOBS.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

keep=0
seconds=60
only=()
for arg in "$@"; do
    case "$arg" in
        --keep) keep=1 ;;
        -h|--help) sed -n '2,13p' "$0"; exit 0 ;;
        *[!0-9]*) only+=("$arg") ;;
        *) seconds=$arg ;;
    esac
done

if [ "$seconds" -lt 1 ]; then
    echo "fuzz.sh: SECONDS must be at least 1" >&2 # libFuzzer reads 0 as no limit
    exit 2
fi

"$root/scripts/setup-deps.sh"

build_dir=${BUILD_DIR:-build-fuzz}
jobs=${JOBS:-$(nproc)}
CC=clang CXX=clang++ cmake -S . -B "$build_dir" \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTABLEDB_SANITIZE=address \
    -DTABLEDB_BUILD_FUZZERS=ON -DTABLEDB_BUILD_TESTS=OFF \
    -DTABLEDB_BUILD_BENCHMARKS=OFF -DTABLEDB_BUILD_EXAMPLES=OFF >/dev/null

harnesses=()
for source in fuzz/*_fuzz.cpp; do
    name=$(basename "$source" _fuzz.cpp)
    if [ ${#only[@]} -gt 0 ] && [[ ! " ${only[*]} " == *" $name "* ]]; then
        continue
    fi
    harnesses+=("$name")
done
if [ ${#harnesses[@]} -eq 0 ]; then
    echo "fuzz.sh: no harness matches ${only[*]}" >&2
    exit 2
fi
targets=()
for name in "${harnesses[@]}"; do targets+=("${name}_fuzz"); done
cmake --build "$build_dir" -j "$jobs" --target "${targets[@]}"

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$root/.ci/lsan.supp:print_suppressions=0}

failed=()
summary=()
for name in "${harnesses[@]}"; do
    seeds="fuzz/corpus/$name"
    run="$build_dir/fuzz-run/$name"
    rm -rf "$run"
    mkdir -p "$run/corpus" "$seeds"
    cp -r "$seeds/." "$run/corpus/"
    echo "== $name: ${seconds}s"
    status=0
    "$build_dir/fuzz/${name}_fuzz" "$run/corpus" \
        -max_total_time="$seconds" -timeout=25 -rss_limit_mb=2560 -max_len=4096 \
        -print_final_stats=1 -artifact_prefix="$run/" >"$run/log" 2>&1 || status=$?
    execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$run/log" | tail -n 1)
    cov=$(grep -Eo 'cov: [0-9]+ ft: [0-9]+' "$run/log" | tail -n 1 || true)
    if [ "$status" -ne 0 ]; then
        failed+=("$name")
        grep -E 'ERROR|property failed|Test unit written' -A3 "$run/log" | head -n 30 || true
        echo "   log: $run/log"
    elif [ "$keep" -eq 1 ]; then
        "$build_dir/fuzz/${name}_fuzz" -merge=1 "$seeds" "$run/corpus" >"$run/merge.log" 2>&1
    fi
    summary+=("$(printf '%-10s %-6s execs %-10s %s' "$name" \
        "$([ "$status" -eq 0 ] && echo ok || echo FAILED)" "${execs:-?}" "${cov:-}")")
done

printf '%s\n' "${summary[@]}"
if [ ${#failed[@]} -gt 0 ]; then
    echo "fuzz.sh: findings in ${failed[*]}" >&2
    exit 1
fi
