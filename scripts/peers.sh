#!/usr/bin/env bash
# peers.sh [--items N] [--repetitions N] [--rows TEXT] [--ours]: times our calls beside those of other packages on the same input and prints the
# table. A run of all rows at the usual size also takes it over into docs/performance.md. Installs what is missing; a package that cannot be
# had is left out.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib.sh

require g++ gcc cmake ninja-build liblapack-dev libgtest-dev
(require libnanoflann-dev libvtk9-dev libcgal-dev libboost-dev libmetis-dev libopenmesh-dev \
    libadmesh-dev libtinyobjloader-dev libgmsh-dev libassimp-dev) || true
configure peers
echo "Building in build/peers"
build peers peers

# refresh NAME FILE: puts the file between the markers of that name in docs/performance.md.
refresh()
{
    awk -v name="$1" -v file="$2" '
        $0 == "<!-- " name " -->" { print; print ""; while ((getline line < file) > 0) print line; print ""; inside = 1 }
        $0 == "<!-- end of " name " -->" { inside = 0 }
        !inside { print }' docs/performance.md >build/peers/performance.md
    cp build/peers/performance.md docs/performance.md
}

processor=$(sed -nE '/^model name/ { s/^[^:]*: *//p; q }' /proc/cpuinfo)
table=build/peers/table.md
{
    echo "Measured $(date +%Y-%m-%d) on one core of a machine with ${processor:-an unknown processor}, $(c++ --version | head -1)."
    echo
    build/peers/bench/peers/peers "$@"
} | tee "$table"
(($#)) || refresh "measured table" "$table"
