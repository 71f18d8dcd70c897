#!/bin/bash
# run.sh [SECONDS [BUILD]] - builds the fuzzers and runs each for so long (30), from the corpus beside this script.
# Fails, and says which input it was, when one of them finds a crash, a leak, an answer that must not be, or a hang.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$here/../..
. "$root/tools/packages.sh"

seconds=${1:-30}
build=${2:-$root/build-fuzz}
need clang libclang-rt-dev cmake make libcjson-dev

cmake -S "$root" -B "$build" -DFUZZ=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang \
      -DCMAKE_CXX_COMPILER=clang++ >/dev/null
cmake --build "$build" -j "$(nproc)" --target request_fuzzer wire_fuzzer >"$build/build.log" 2>&1 ||
    { cat "$build/build.log"; exit 1; }

run=$(mktemp -d)
trap 'rm -rf "$run"' EXIT
# Keys, endpoints and words, and the operations, are the texts that make a difference.
grep -oh '"[A-Za-z0-9_.:/-]\+"' "$root"/switching/*.cpp | sort -u >"$run/request.dict"
sed -n 's/^OPEN_OPERATION(\(rpcclt_[A-Za-z0-9]*\).*/"\1"/p' "$root/platform/include/openclt_operations.def" \
    >"$run/wire.dict"

failed=0
for name in request wire; do
    mkdir "$run/$name" # what is found on the way is not added to the corpus
    if TMPDIR=$run ASAN_OPTIONS=quarantine_size_mb=32 "$build/${name}_fuzzer" -max_total_time="$seconds" -timeout=10 \
            -rss_limit_mb=2048 -entropic_scale_per_exec_time=1 -print_final_stats=1 -dict="$run/$name.dict" \
            -artifact_prefix="$build/$name-" "$run/$name" "$here/corpus/$name" >"$run/$name.log" 2>&1; then
        executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$run/$name.log")
        echo "${name}_fuzzer: $executions executions, nothing found"
    else
        failed=1
        grep -v '^#[0-9]*[[:space:]]*\(NEW\|REDUCE\|pulse\)' "$run/$name.log" | tail -n 100
        echo "${name}_fuzzer: found something; again: $build/${name}_fuzzer FILE (the one named above)"
    fi
done
exit $failed
