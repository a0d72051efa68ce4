#!/usr/bin/env bash
# Builds the library with all its tests, examples included, and runs the tests. Works on a fresh Debian machine: installs what is missing.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib.sh

require g++ cmake ninja-build pkg-config liblapack-dev libgtest-dev
configure release -DGRIDWEAVE_BUILD_TESTS=ON -DGRIDWEAVE_BUILD_EXAMPLES=ON -DGRIDWEAVE_WARNINGS_AS_ERRORS=ON
echo "Building in build/release"
build release
run_tests release
