#!/usr/bin/env bash
# demo.sh [INPUT.stl]: builds the library and runs the typical job on a surface, by default on a part that is made on the spot. Leaves files
# for viewers in out/demo. Works on a fresh Debian machine: installs what is missing.
set -euo pipefail
(($# <= 1)) || {
    echo "usage: $0 [INPUT.stl]" >&2
    exit 2
}
input=${1:+$(realpath --canonicalize-missing -- "$1")}
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib.sh

require g++ cmake ninja-build liblapack-dev
# A build that is there keeps its tests; a new one does without them, and so without GoogleTest.
options=()
[[ -e build/release/CMakeCache.txt ]] || options=(-DGRIDWEAVE_BUILD_TESTS=OFF)
configure release -DGRIDWEAVE_BUILD_EXAMPLES=ON "${options[@]}"
echo "Building in build/release"
build release make_bracket surface_job

mkdir -p out/demo
if [[ -z $input ]]; then
    input=out/demo/bracket.stl
    build/release/examples/make_bracket "$input"
fi
build/release/examples/surface_job "$input" out/demo
