#!/bin/bash
# run.sh [SECONDS] - builds the fuzzers and runs them for so long (30), side by side, from the corpus beside this script.
# Fails, and says which input it was, when one of them finds a crash, a leak, an answer that must not be, or a hang.
. "$(dirname "$0")/../../tools/script.sh"
. "$root/tools/packages.sh"
cd "$root"
[ $# -le 1 ] || wrong "it takes SECONDS or nothing"
seconds=${1-30}
number SECONDS "$seconds" 1 1000000

need clang libclang-rt-dev cmake make libcjson-dev libgtest-dev libgmock-dev
build=build-sanitize
compile $build "request_fuzzer wire_fuzzer frames_fuzzer" -DCMAKE_BUILD_TYPE=Debug -DSANITIZE=ON -DCMAKE_C_COMPILER=clang \
    -DCMAKE_CXX_COMPILER=clang++

scratch
# Keys, endpoints and words, and the operations, are the texts that make a difference.
grep -oh '"[A-Za-z0-9_.:/-]\+"' switching/*.cpp | sort -u >"$run/request.dict"
sed -n 's/^OPEN_OPERATION(\(rpcclt_[A-Za-z0-9]*\).*/"\1"/p' platform/include/openclt_operations.def >"$run/wire.dict"
: >"$run/frames.dict"

fuzzers=(request wire frames)
for name in "${fuzzers[@]}"; do
    mkdir "$run/$name" # what is found on the way is not added to the corpus
    TMPDIR=$run ASAN_OPTIONS=quarantine_size_mb=32 launch $build/${name}_fuzzer -max_total_time="$seconds" \
        -timeout=10 -rss_limit_mb=2048 -entropic_scale_per_exec_time=1 -print_final_stats=1 -dict="$run/$name.dict" \
        -artifact_prefix="$build/$name-" "$run/$name" tests/fuzz/corpus/$name >"$run/$name.log" 2>&1
done
failed=0
started=("${pids[@]}")
for i in "${!fuzzers[@]}"; do
    name=${fuzzers[i]}
    if wait "${started[i]}"; then
        executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$run/$name.log")
        echo "${name}_fuzzer: $executions executions, nothing found"
    else
        failed=1
        grep -v '^#[0-9]*[[:space:]]*\(NEW\|REDUCE\|pulse\)' "$run/$name.log" | tail -n 100
        echo "${name}_fuzzer: found something; again: $build/${name}_fuzzer FILE (the one named above)"
    fi
done
exit $failed
