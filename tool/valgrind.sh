#!/usr/bin/env bash
# valgrind.sh [PROGRAM [FILTER]]: the library's unit tests under memcheck, which unlike the sanitizers of ./check also
# tells when something depends on a value that nobody wrote.
#
# Without names: all programs of unit tests, but for tests that take long by nature or end a process of their own. With
# one: that program, and those of its tests that a filter of GoogleTest names. Any error fails the script; the report
# of a program is build/valgrind/<program>.log. VALGRIND_BUILD names another folder to build in.
set -euo pipefail
cd "$(dirname "$0")/.."
. tool/packages.sh

VALGRIND_BUILD=$(realpath -m "${VALGRIND_BUILD:-build/valgrind}")
programs=${1:-testBase testIop testMtx testTpl testRdb}
# much data, or every place of a file: each in a few seconds without memcheck
left_out='everyForm.*:*ameInEveryForm*:*any*:*arge*:*uge*:*cattered*:*andom*:*runsOf*:iopDamaged.compressed*'
left_out+=':iopHdf.damagedFiles:iopNumbers.valueAndEnd*:*Language*:*languageOf*:*Locale*:cliBad.*OrFail*:regExprPeer.*'
# a process that dies, and memory that is measured or bounded, of which memcheck needs more
left_out+=':*DeathTest*:*Memory*:*halfMade*:*OnTheHeap*:containers.*HoldsAll'
# memcheck starts programs by a fork, which does not tell that there is none
left_out+=':iopZip.programsThatAreNotThere'
filter=${2:--$left_out}

# shellcheck disable=SC2086
install_packages $packages_bookworm valgrind
use_ccache
cmake -S . -B "$VALGRIND_BUILD" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DRDB_PLUGIN=OFF
# shellcheck disable=SC2086
cmake --build "$VALGRIND_BUILD" --target $programs
export RDB_TEST_FOLDER=$VALGRIND_BUILD/testFolders
mkdir -p "$RDB_TEST_FOLDER"

# What a failure jumps over is lost, which is part of how failures work: so lost memory is no error here. The unit tests
# under the address sanitizer tell of the rest.
for program in $programs; do
    say "$program"
    log=$VALGRIND_BUILD/$program.log
    valgrind --quiet --error-exitcode=99 --leak-check=no --num-callers=30 --child-silent-after-fork=yes \
             --suppressions=tool/valgrind.supp --log-file="$log" \
             "$VALGRIND_BUILD/bin/$program" --gtest_brief=1 --gtest_filter="$filter" || { cat "$log"; exit 1; }
done
say "no errors"
