#!/usr/bin/env bash
# fuzz.sh [SECONDS [TARGET...]]: builds the fuzz targets and runs each for so many seconds (15), two at a time.
#
# Without names: all targets but those whose findings may be another library's. Inputs that led somewhere new stay in
# build/fuzz/corpus/<target> for the next time. A finding fails the script and stays in build/fuzz/findings/, beside the
# target's own report; build/fuzz/bin/<target> FILE does it again, with FUZZ_SHOW=1 in the environment step by step.
# FUZZ_BUILD names another folder to build and keep things in. FUZZ_SEED starts the runs' random numbers: the same seed
# gives the same inputs, so that a check says the same each time.
set -euo pipefail
cd "$(dirname "$0")/.."
. tool/packages.sh

seconds=${1:-15}
[ $# -gt 0 ] && shift
case $seconds in *[!0-9]*) echo "usage: tool/fuzz.sh [SECONDS [TARGET...]]" >&2; exit 2 ;; esac
FUZZ_BUILD=$(realpath -m "${FUZZ_BUILD:-build/fuzz}")
long_runs_only=fuzzIopHdfBytes

use_ccache
cmake --preset fuzz -B "$FUZZ_BUILD"
cmake --build "$FUZZ_BUILD" --target fuzzTargets
rm -rf "$FUZZ_BUILD/seeds"
"$FUZZ_BUILD/bin/fuzzSeeds" "$FUZZ_BUILD/seeds"
mkdir -p "$FUZZ_BUILD/findings"

# in memory where that can be: a target writes a file for each input
TMPDIR=$(if [ -w /dev/shm ]; then mktemp -d -p /dev/shm; else mktemp -d; fi)
trap 'rm -rf "$TMPDIR"' EXIT
export TMPDIR FUZZ_BUILD seconds long_runs_only

# run_one TARGET: in rounds, since what a trapped failure jumps over is lost and memory grows
run_one() {
    local target=$1 end=$((SECONDS + seconds)) left runs=0
    local log=$FUZZ_BUILD/findings/$target.log corpus=$FUZZ_BUILD/corpus/$target
    local sanitizer=detect_leaks=0 most_at_once=4096
    mkdir -p "$corpus"
    # HDF5 asks for as much memory as a file says, and takes no for an answer
    if [ "$target" = "$long_runs_only" ]; then sanitizer+=:allocator_may_return_null=1 most_at_once=100000000; fi
    while left=$((end - SECONDS)) && [ "$left" -gt 0 ]; do
        if ! ASAN_OPTIONS=$sanitizer "$FUZZ_BUILD/bin/$target" -max_total_time="$left" -runs=200000 -timeout=60 \
                 ${FUZZ_SEED:+-seed=$FUZZ_SEED} \
                 -rss_limit_mb=4096 -malloc_limit_mb=$most_at_once -artifact_prefix="$FUZZ_BUILD/findings/$target-" \
                 "$corpus" "$FUZZ_BUILD/seeds/$target" > "$log" 2>&1; then
            tail -n 60 "$log"
            echo "$target: a finding; its report is $log"
            return 1
        fi
        runs=$((runs + $(sed -n 's/^Done \([0-9]*\) runs.*/\1/p' "$log")))
    done
    echo "$target: $runs runs in $seconds seconds, $(sed -n 's/.*DONE *\(cov: [0-9]*\).*/\1/p' "$log"), no finding"
}
export -f run_one

if [ $# -eq 0 ]; then
    for source in test/fuzz/fuzz*.cpp; do
        target=$(basename "$source" .cpp)
        [ "$target" = "$long_runs_only" ] || set -- "$@" "$target"
    done
fi
say "fuzzing: $*"
printf '%s\n' "$@" | xargs -P 2 -I{} bash -c 'run_one {}'
