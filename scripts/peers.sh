#!/usr/bin/env bash
# peers.sh: times our calls beside those of other packages on the same input, prints the table and takes it over into docs/performance.md.
# peers.sh --rows TEXT [--items N] [--repetitions N] [--ours] [--limits]: some rows, printed only.
# peers.sh --scale: times our calls on 0.1, 1 and 10 million items and the typical job on 10 million triangles; takes the tables over into
# docs/performance.md and draws docs/scale.svg.
#
# Installs what is missing; a package that cannot be had is left out.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib.sh

require g++ gcc cmake ninja-build liblapack-dev libgtest-dev
for package in libnanoflann-dev libvtk9-dev libcgal-dev libboost-dev libmetis-dev libopenmesh-dev libadmesh-dev libtinyobjloader-dev \
    libgmsh-dev libassimp-dev; do
    (require "$package") || true
done
configure peers
echo "Building in build/peers" >&2
build peers peers

peers=build/peers/bench/peers/peers

# refresh NAME FILE: puts the file between the markers of that name in docs/performance.md.
refresh()
{
    awk -v name="$1" -v file="$2" '
        $0 == "<!-- " name " -->" { print; print ""; while ((getline line < file) > 0) print line; print ""; inside = 1 }
        $0 == "<!-- end of " name " -->" { inside = 0 }
        !inside { print }' docs/performance.md >build/peers/performance.md
    cp build/peers/performance.md docs/performance.md
}

measured_where()
{
    local processor
    processor=$(sed -nE '/^model name/ { s/^[^:]*: *//p; q }' /proc/cpuinfo)
    echo "Measured $(date +%Y-%m-%d) on one core of a machine with ${processor:-an unknown processor}, $(c++ --version | head -1)."
    echo
}

compare()
{
    local status=0
    {
        measured_where
        "$peers" --limits || status=$?
    } >build/peers/table.md
    cat build/peers/table.md
    refresh "measured table" build/peers/table.md
    return "$status"
}

scale()
{
    require python3-matplotlib
    local figures=build/peers/scale.csv
    rm -f "$figures"
    # Only first calls, on fresh memory, so that no size has it easier than another; small ones several times, against noise.
    local items
    for items in 100000 100000 100000 1000000 1000000 10000000; do
        "$peers" --ours --items "$items" --repetitions 0 --csv "$figures" >/dev/null
    done
    {
        measured_where
        /usr/bin/python3 bench/peers/plot_scale.py "$figures" docs/scale.svg
    } | tee build/peers/scale.md
    refresh "scale" build/peers/scale.md
    "$peers" --job 10000000 | tee build/peers/job.md
    refresh "typical job" build/peers/job.md
}

case ${1:-} in
'') compare ;;
--scale) scale ;;
*) "$peers" "$@" ;;
esac
