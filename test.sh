#!/bin/bash
# test.sh - installs what is missing, builds, and runs all tests: as released, then under AddressSanitizer and
# UndefinedBehaviorSanitizer, then the fuzzers for half a minute. Some four minutes on two calm cores, packages included.
. "$(dirname "$0")/tools/script.sh"
. "$root/tools/packages.sh"
cd "$root"
[ $# = 0 ] || wrong "it takes nothing"

# What every step adds to, and the last line says.
passed=0 failed=0 skipped=0

# begin WHAT HOW-LONG: a step
begin()
{
    echo "== $1 (some $2 on two calm cores)"
}

# add PASSED FAILED SKIPPED WHAT
add()
{
    passed=$((passed + $1)) failed=$((failed + $2)) skipped=$((skipped + $3))
    echo "$4: $1 passed, $2 failed, $3 skipped"
}

# check WHAT COMMAND...: a test by itself. Status 77 is "skipped", after a line that says why.
check()
{
    local status=0
    attend "${@:2}" || status=$?
    case $status in
        0) add 1 0 0 "$1" ;;
        77) add 0 0 1 "$1" ;;
        *) add 0 1 0 "$1" ;;
    esac
}

# tests WHAT BUILD [CTEST-WORD...]
tests()
{
    local counts
    rm -f "$run/results.xml"
    attend ctest --test-dir "$2" -j "$(nproc)" --progress --output-on-failure --no-tests=error \
        --output-junit "$run/results.xml" "${@:3}" || true
    [ -e "$run/results.xml" ] || { add 0 1 0 "$1"; return; }
    # What a skipped test said: behind googletest's mark, or "skipped: ..."
    awk '/<testcase/ { match($0, /name="[^"]*"/); name = substr($0, RSTART + 6, RLENGTH - 7); skipped = 0 }
         /<skipped/ { skipped = 1 }
         skipped && (last ~ /: Skipped$/ || sub(/^.*skipped: /, "")) { print "skipped: " name ": " $0; skipped = 0 }
         { last = $0 }' "$run/results.xml"
    counts=$(tr '\n' ' ' <"$run/results.xml" |
             sed -n 's/.*<testsuite [^>]*tests="\([0-9]*\)"[^>]*failures="\([0-9]*\)"[^>]*skipped="\([0-9]*\)".*/\1 \2 \3/p')
    # shellcheck disable=SC2086 # three words
    set -- "$1" ${counts:-0 1 0}
    add $(($2 - $3 - $4)) "$3" "$4" "$1"
}

need g++ cmake make libcjson-dev libgtest-dev libgmock-dev lighttpd curl python3 python3-jsonschema clang llvm \
    libclang-rt-dev
scratch
export TMPDIR=$run # what a test leaves when it is interrupted goes as well

begin "Building the release and the tests" "40 s"
compile build-test all -DCMAKE_BUILD_TYPE=Release -DCMAKE_COMPILE_WARNING_AS_ERROR=ON
begin "Testing the release" "55 s"
tests "As released" build-test

begin "Building with sanitizers" "40 s"
compile build-sanitize all -DCMAKE_BUILD_TYPE=Debug -DSANITIZE=ON -DCMAKE_COMPILE_WARNING_AS_ERROR=ON \
    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++
begin "Testing with sanitizers" "50 s"
tests "Linked with sanitizers" build-sanitize
TEST_BUILD=$root/build-sanitize tests "The program with sanitizers" build-test -L program
begin "Frames from outside" "15 s"
check "Hosts in network namespaces" tests/outside/frames_e2e.sh build-test
check "Open vSwitch as the referee" tests/outside/frames_referee.py build-test 1 2
begin "Fuzzing" "35 s"
check "The fuzzers" tests/fuzz/run.sh 30

echo "test.sh: $passed passed, $failed failed, $skipped skipped"
[ $failed = 0 ]
