#!/usr/bin/env bash
# Builds the fuzz targets and runs them.
#
#   fuzz.sh [target|all] [seconds]  runs one target, or each in turn, for so many seconds (all, 60). Inputs that reach something new go to
#                                   build/fuzz/corpus, on top of the stored ones; one that breaks a promise ends the run and is left in
#                                   build/fuzz/findings, where the target's program reproduces it: build/fuzz/tests/fuzz/stl_fuzz FILE
#   fuzz.sh check [target|all]      runs each on the stored inputs and a fixed number of others, as CI does
#   fuzz.sh merge [target|all]      makes the stored corpus anew: the written seeds, and few inputs that reach all that was reached so far
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib.sh

all_targets=(stl wavefront_obj nastran femap connectivity edit_search metrics_quality writers numbers)
build_dir=build/fuzz
stored=tests/fuzz/corpus
check_runs=2000 # a few seconds

# run TARGET OPTION...
run()
{
    local target=$1 dictionary=tests/fuzz/$1.dict limits=()
    shift
    if [[ -f $dictionary ]]; then
        limits=("-dict=$dictionary" -max_len=2048) # a file of some dozens of lines
    else
        limits=(-max_len=600 -len_control=0) # the choices of a short sequence of calls
    fi
    mkdir -p "$stored/$target"
    "$build_dir/tests/fuzz/${target}_fuzz" "${limits[@]}" -timeout=60 "$@"
}

fuzz()
{
    local target=$1 seconds=$2
    mkdir -p "$build_dir/corpus/$target" "$build_dir/findings"
    run "$target" -max_total_time="$seconds" -artifact_prefix="$build_dir/findings/$target-" "$build_dir/corpus/$target" "$stored/$target"
}

check()
{
    local target=$1 fresh=$build_dir/fresh/$1
    rm -rf "$fresh"
    mkdir -p "$fresh" "$build_dir/findings"
    run "$target" -runs="$check_runs" -seed=1 -artifact_prefix="$build_dir/findings/$target-" "$fresh" "$stored/$target" >"$fresh.log" 2>&1 || {
        tail -n 40 "$fresh.log"
        fail "the target $target has found something; the input is in $build_dir/findings."
    }
    echo "$target: $(grep -E '^#[0-9]+.DONE' "$fresh.log")"
}

merge()
{
    local target=$1 merged=$build_dir/merged
    rm -rf "${merged:?}/$target"
    "$build_dir/tests/fuzz/make_seeds" "$merged"
    mkdir -p "$merged/$target" "$build_dir/corpus/$target"
    run "$target" -set_cover_merge=1 -use_counters=0 "$merged/$target" "$stored/$target" "$build_dir/corpus/$target"
    rm -rf "${stored:?}/$target"
    cp -r "$merged/$target" "$stored/$target"
}

action=fuzz
case ${1:-} in
check | merge)
    action=$1
    shift
    ;;
esac
targets=("${1:-all}")
[[ ${targets[0]} == all ]] && targets=("${all_targets[@]}")

require clang libclang-rt-dev cmake ninja-build liblapack-dev
configure fuzz -DGRIDWEAVE_WARNINGS_AS_ERRORS=OFF
echo "Building in $build_dir"
build fuzz
for target in "${targets[@]}"; do
    [[ -x $build_dir/tests/fuzz/${target}_fuzz ]] || fail "there is no target $target; the targets are ${all_targets[*]}"
    "$action" "$target" "${2:-60}"
done
