#!/usr/bin/env bash
# Builds the library and its tests with gcov's counters, runs the tests and prints which part of the library's lines and branches they reach.
# Fails when there is a line that no test reaches, unless a comment at that line gives the reason, which begins with gcovr's GCOVR_EXCL_LINE.
# build/coverage/index.html shows every line. Branches that only an exception could take are left out: none is thrown.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib.sh

require g++ cmake ninja-build liblapack-dev libgtest-dev gcovr
configure coverage -DCMAKE_CXX_COMPILER=g++ -DGRIDWEAVE_WARNINGS_AS_ERRORS=ON
echo "Building in build/coverage"
build coverage
find build/coverage -name '*.gcda' -delete
run_tests coverage

library=(--root . --filter include/ --filter numcore/ --filter auxkit/ --filter gridweave/)
counts=build/coverage/counts.json
gcovr -j "$jobs" "${library[@]}" --exclude-throw-branches --exclude-unreachable-branches --json "$counts" build/coverage
gcovr "${library[@]}" --add-tracefile "$counts" --txt build/coverage/lines.txt --html-details build/coverage/index.html
gcovr "${library[@]}" --add-tracefile "$counts" --branches --txt build/coverage/branches.txt

echo
cat build/coverage/branches.txt
echo
cat build/coverage/lines.txt
gcovr "${library[@]}" --add-tracefile "$counts" --fail-under-line 100 --print-summary --txt /dev/null ||
    fail "no test reaches the lines in the last column, and no comment says why."
