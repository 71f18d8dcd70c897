#!/bin/bash
# test.sh - installs what is missing, builds, and runs all tests: as released, then with AddressSanitizer and
# UndefinedBehaviorSanitizer, then the fuzzers for half a minute. Takes some four minutes on two idle cores,
# installation included.
. "$(dirname "$0")/tools/script.sh"
. "$root/tools/packages.sh"
cd "$root"
[ $# = 0 ] || wrong "it takes nothing"

# The sums that the last line reports.
passed=0 failed=0 skipped=0

# begin WHAT DURATION: announces a step.
begin()
{
    echo "== $1 (some $2 on two idle cores)"
}

# add PASSED FAILED SKIPPED WHAT
add()
{
    passed=$((passed + $1)) failed=$((failed + $2)) skipped=$((skipped + $3))
    echo "$4: $1 passed, $2 failed, $3 skipped"
}

# check WHAT COMMAND...: a test of its own. Status 77 means skipped; the test has said why.
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

# tests WHAT BUILD [CTEST-ARGUMENT...]: the tests of ctest. Its summary counts a skipped test as passed.
tests()
{
    local log=$run/ctest.log all bad idle
    : >"$log"
    attend ctest --test-dir "$2" -j "$(nproc)" --progress --output-on-failure --no-tests=error --output-log "$log" \
        "${@:3}" || true
    read -r bad all < <(sed -n 's/.*% tests passed, \([0-9]*\) tests\? failed out of \([0-9]*\)$/\1 \2/p' "$log") ||
        { add 0 1 0 "$1"; return; }
    idle=$(grep -c '(Skipped)$' "$log") || true
    # Why: the line after googletest's mark, or what a script says after "skipped: ".
    sed -n -e '/^[0-9/]* Testing: /{ s/.* Testing: //; h }' -e '/: Skipped$/{ n; s/^/skipped: / }' \
        -e '/^skipped: /{ s///; G; s/\(.*\)\n\(.*\)/skipped: \2: \1/p }' "$2/Testing/Temporary/LastTest.log"
    add $((all - bad - idle)) "$bad" "$idle" "$1"
}

need g++ cmake make libcjson-dev libgtest-dev libgmock-dev lighttpd curl python3 python3-jsonschema python3-pytest clang llvm \
    libclang-rt-dev
scratch
export TMPDIR=$run # so that files of an interrupted test are removed as well

begin "Building the release and the tests" "40 s"
compile build-test all -DCMAKE_BUILD_TYPE=Release -DCMAKE_COMPILE_WARNING_AS_ERROR=ON
begin "Testing the release" "55 s"
tests "As released" build-test

begin "Building with sanitizers" "40 s"
compile build-sanitize all -DCMAKE_BUILD_TYPE=Debug -DSANITIZE=ON -DCMAKE_COMPILE_WARNING_AS_ERROR=ON \
    -DCMAKE_CXX_COMPILER=clang++
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
