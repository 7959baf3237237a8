#!/usr/bin/env bash
# The one build entry point: installs what is missing, configures, builds what
# the action needs, then
#   run    runs the main program, tabledb-feed, with any further arguments (the default)
#   test   runs the whole test suite through CTest
#   bench  runs the benchmarks
#   build  only builds, everything
#   configure  only configures (for a caller that builds chosen targets)
# Environment: BUILD_DIR (default build, or build-<sanitizer>), TABLEDB_SANITIZE
# (empty, address or thread), BUILD_TYPE (default RelWithDebInfo), JOBS, and
# CMAKE_ARGS for further configure options.
set -euo pipefail

action=${1:-run}
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

"$root/scripts/setup-deps.sh"

sanitize=${TABLEDB_SANITIZE:-}
if [ -n "$sanitize" ]; then
    default_dir="build-$sanitize"
else
    default_dir="build"
fi
build_dir=${BUILD_DIR:-$default_dir}
jobs=${JOBS:-$(nproc)}

cmake -S . -B "$build_dir" \
    -DCMAKE_BUILD_TYPE="${BUILD_TYPE:-RelWithDebInfo}" \
    -DTABLEDB_SANITIZE="$sanitize" ${CMAKE_ARGS:-} >/dev/null
case "$action" in
    configure) exit 0 ;;
    run) targets=(--target tabledb-feed) ;;
    test) targets=(--target tabledb_tests) ;;
    bench) targets=(--target tabledb_benchmarks) ;;
    *) targets=() ;;
esac
cmake --build "$build_dir" -j "$jobs" ${targets[@]+"${targets[@]}"}

case "$sanitize" in
    address|on|ON)
        export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
        export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
        export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$root/.ci/lsan.supp:print_suppressions=0}
        ;;
    thread)
        export TSAN_OPTIONS=${TSAN_OPTIONS:-suppressions=$root/.ci/tsan.supp:halt_on_error=1:second_deadlock_stack=1}
        ;;
esac
export QT_QPA_PLATFORM=offscreen

case "$action" in
    run)
        shift || true
        exec "$build_dir/tools/tabledb-feed" "$@"
        ;;
    test)
        ctest --test-dir "$build_dir" --output-on-failure -j "$jobs"
        ;;
    bench)
        for b in "$build_dir"/bench/*_bench; do
            [ -x "$b" ] && "$b"
        done
        ;;
    build)
        ;;
    *)
        echo "usage: $0 [run|test|bench|build|configure]" >&2
        exit 2
        ;;
esac
