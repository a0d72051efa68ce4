# shellcheck shell=bash
# What the scripts share: installing what is missing, building, running tests. To be sourced by bash from the root of the repository.

jobs=$(nproc 2>/dev/null || echo 2)

fail()
{
    echo "$(basename "$0"): $*" >&2
    exit 1
}

# True when a program with the given preprocessor line compiles and links with the given options.
compiles()
{
    local line=$1
    shift
    printf '%s\nint main() {}\n' "$line" | c++ -x c++ - -o /dev/null "$@" 2>/dev/null
}

# True when what the named Debian package is for is there, from wherever it came.
has()
{
    case $1 in
    g++) command -v c++ ;;
    gcc) command -v cc ;;
    ninja-build) command -v ninja ;;
    liblapack-dev) compiles '' -llapack ;;
    libgtest-dev) compiles '#include <gtest/gtest.h>' -lgtest ;;
    libbenchmark-dev) compiles '#include <benchmark/benchmark.h>' -lbenchmark ;;
    libnanoflann-dev) compiles '#include <nanoflann.hpp>' ;;
    libvtk9-dev) compiles '#include <vtk-9.1/vtkVersionMacros.h>' ;;
    libcgal-dev) compiles '#include <CGAL/version.h>' ;;
    libadmesh-dev) compiles '#include <admesh/stl.h>' -ladmesh ;;
    libtinyobjloader-dev) compiles '#include <tiny_obj_loader.h>' -ltinyobjloader ;;
    libgmsh-dev) compiles '#include <gmsh.h>' -lgmsh ;;
    libassimp-dev) compiles '#include <assimp/Importer.hpp>' -lassimp ;;
    libmetis-dev) compiles '#include <metis.h>' -lmetis ;;
    libopenmesh-dev) compiles '#include <OpenMesh/Core/System/config.h>' ;;
    libboost-dev) compiles '#include <boost/version.hpp>' ;;
    locales) [[ -e /usr/share/i18n/locales/de_DE ]] ;;
    python3-vtk9) /usr/bin/python3 -c 'import vtkmodules' ;;
    python3-matplotlib) /usr/bin/python3 -c 'import matplotlib' ;;
    python3-meshio) /usr/bin/python3 -c 'import meshio' ;;
    libclang-rt-dev) [[ -f $(clang++ -print-resource-dir)/lib/linux/libclang_rt.fuzzer-$(uname -m).a ]] ;;
    assimp-utils) command -v assimp ;;
    *) command -v "$1" ;;
    esac >/dev/null 2>&1
}

# require PACKAGE...: installs what is missing with apt-get where it may, and says what to install where it may not.
require()
{
    local missing=() package
    for package in "$@"; do
        has "$package" || missing+=("$package")
    done
    ((${#missing[@]})) || return 0

    local as_root=()
    if [[ $(id -u) != 0 ]]; then
        as_root=(sudo -n)
        sudo -n true 2>/dev/null || as_root=(false)
    fi
    if ! command -v apt-get >/dev/null || [[ ${as_root[0]:-} == false ]]; then
        fail "please install ${missing[*]} (Debian's package names), then run this again."
    fi

    echo "Installing ${missing[*]}"
    # An update that fails need not matter: the lists or the packages may be there already.
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq update || true
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq install --yes --no-install-recommends "${missing[@]}" >/dev/null ||
        fail "apt-get could not install ${missing[*]}; please install them, then run this again."
}

# configure PRESET OPTION...
configure()
{
    local preset=$1
    shift
    if command -v ccache >/dev/null; then
        export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER:-ccache}
    fi
    mkdir -p "build/$preset"
    cmake --preset "$preset" "$@" >"build/$preset/configure.log" 2>&1 || {
        cat "build/$preset/configure.log"
        fail "configuring the preset $preset failed."
    }
}

# build PRESET [TARGET...]: shows the compiler's messages where there are any.
build()
{
    local preset=$1
    shift
    local targets=()
    (($#)) && targets=(--target "$@")
    cmake --build --preset "$preset" --parallel "$jobs" "${targets[@]}" >"build/$preset/build.log" 2>&1 || {
        grep -vE '^\[[0-9]+/[0-9]+\] ' "build/$preset/build.log"
        fail "building the preset $preset failed."
    }
}

# run_tests PRESET: the whole test suite; shows what does not pass, and closes with a line of counts that is left in
# build/PRESET/tests.summary, too.
run_tests()
{
    local log=build/$1/tests.log status=0 failed total skipped
    ctest --preset "$1" --parallel "$jobs" | tee "$log" |
        grep -vE '^ *Start +[0-9]+: |^ *[0-9]+/[0-9]+ Test .* Passed ' || status=$?
    read -r failed total < <(sed -nE 's/^.* ([0-9]+) tests? failed out of ([0-9]+)$/\1 \2/p' "$log") || fail "no tests were run."
    skipped=$(grep -cE '^ *[0-9]+/[0-9]+ Test .*\*\*\*Skipped ' "$log" || true)
    echo "$((total - failed - skipped)) passed, $failed failed" | tee "build/$1/tests.summary"
    return "$status"
}
