#!/bin/bash
# run.sh [SECONDS] - builds the fuzzers and runs them for so long (30), side by side, from the corpus beside this script
# and from two requests for every endpoint. Fails and names the input when a fuzzer finds a crash, a leak, a wrong answer
# or a hang. Fails, too, when all inputs together reach less than 90 % of the lines of the program.
. "$(dirname "$0")/../../tools/script.sh"
. "$root/tools/packages.sh"
cd "$root"
[ $# -le 1 ] || wrong "it takes SECONDS or nothing"
seconds=${1-30}
number SECONDS "$seconds" 1 1000000

need clang llvm libclang-rt-dev cmake make libcjson-dev libgtest-dev libgmock-dev
build=build-sanitize
compile $build "request_fuzzer request_coverage frames_fuzzer scgi_fuzzer" -DCMAKE_BUILD_TYPE=Debug -DSANITIZE=ON \
    -DCMAKE_CXX_COMPILER=clang++

scratch
# The dictionary: keys, endpoints and value names, which all stand in quotes.
grep -oh '"[A-Za-z0-9_.:/-]\+"' switching/*.cpp | sort -u >"$run/request.dict"

# For every endpoint of the route table (see request_fuzzer.cpp), with every key there is in query and body: a switch
# that answers nothing but zeros, and one that answers nothing but failures.
mkdir "$run/seeds"
keys=$(sed -n 's/^\([A-Za-z0-9]*\) = \(.*\) : .*/\1 \2/p' api/words/glossary.txt)
query=$(sed 's/ /=/; s/"//g' <<<"$keys" | paste -sd '&')
body={$(sed 's/^\([^ ]*\) /"\1": /' <<<"$keys" | paste -sd ,)}
failures=$(printf '\226%.0s' {1..64})
endpoints=$(cat switching/*.cpp | grep -c 'addRoute(dir,') # more are no harm: the fuzzer counts modulo
for ((i = 0; i < endpoints; i++)); do
    printf -v request '\n@%s?%s\n\n\nadmin\n\n\n%s\n' $i "$query" "$body"
    printf '%s' "$request" >"$run/seeds/$i-zeros"
    printf '%s\0%s' "$request" "$failures" >"$run/seeds/$i-failures"
done

fuzzers=(request frames scgi)
declare -A seeds=([request]=$run/seeds)
for name in "${fuzzers[@]}"; do
    dictionary=()
    [ ! -e "$run/$name.dict" ] || dictionary=("-dict=$run/$name.dict")
    mkdir "$run/$name" # new inputs do not go into the corpus
    TMPDIR=$run ASAN_OPTIONS=quarantine_size_mb=32 launch $build/${name}_fuzzer -max_total_time="$seconds" \
        -timeout=10 -rss_limit_mb=2048 -entropic_scale_per_exec_time=1 -print_final_stats=1 "${dictionary[@]}" \
        -artifact_prefix="$build/$name-" "$run/$name" "tests/fuzz/corpus/$name" ${seeds[$name]-} >"$run/$name.log" 2>&1
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

# The lines that all these inputs reach.
find "$run/request" "$run/seeds" tests/fuzz/corpus/request -type f -print0 |
    TMPDIR=$run LLVM_PROFILE_FILE=$run/profile-%p xargs -0 $build/request_coverage >"$run/coverage.log" 2>&1 ||
    fail "$(tail "$run/coverage.log")"
llvm-profdata merge -o "$run/lines" "$run"/profile-*
llvm-cov report $build/request_coverage -instr-profile="$run/lines" | awk '
    match($1, /(switching|common|httpd)\/[^\/]*$/) {
        directory = substr($1, RSTART, index(substr($1, RSTART), "/"))
        lines[directory] += $8; reached[directory] += $8 - $9; all += $8; allReached += $8 - $9
    }
    END {
        for (directory in lines) printf "%s %.1f %%, ", directory, 100 * reached[directory] / lines[directory]
        printf "together %.1f %% of the lines are reached by the inputs of request_fuzzer\n", 100 * allReached / all
        exit allReached < 0.9 * all
    }' || { echo "the inputs must reach at least 90 %"; failed=1; }
exit $failed
