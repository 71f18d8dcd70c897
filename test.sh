#!/bin/bash
# test.sh - installs what is missing, builds, and runs all tests: as released, then the fuzzers for half a minute each,
# then all again under AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")"
. tools/packages.sh

need g++ cmake make libcjson-dev libgtest-dev libgmock-dev lighttpd curl python3
jobs=$(nproc)
run()
{
    local build=$1
    shift
    cmake -S . -B "$build" "$@" >/dev/null
    cmake --build "$build" -j "$jobs" >"$build/build.log" 2>&1 || { cat "$build/build.log"; return 1; }
    if grep -q 'warning:' "$build/build.log"; then
        cat "$build/build.log"
        echo "The build has warnings." >&2
        return 1
    fi
    ctest --test-dir "$build" -j "$jobs" --output-on-failure --no-tests=error
}
run build-test -DCMAKE_BUILD_TYPE=Release
tests/fuzz/run.sh 30
run build-sanitize -DCMAKE_BUILD_TYPE=Debug -DSANITIZE=address,undefined
