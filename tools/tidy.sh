#!/bin/bash
# tidy.sh [FILE-OR-DIRECTORY...] - installs what is missing, and runs clang-tidy on these sources, or on all (some eight
# minutes on two cores). Fails when clang-tidy finds something.
. "$(dirname "$0")/script.sh"
. "$root/tools/packages.sh"
cd "$root"

[ $# -gt 0 ] || set -- main httpd common log switching platform vswitch api tests
for name; do [ -e "$name" ] || wrong "there is no file or directory \"$name\" in the project"; done
mapfile -t files < <(find "$@" -name '*.cpp' ! -path '*/fuzz/*' | sort) # only a build by clang has the fuzzers
[ ${#files[@]} -gt 0 ] || wrong "no .cpp file is there in: $*"

need g++ cmake make libcjson-dev libgtest-dev libgmock-dev clang-tidy
mkdir -p build-tidy
attend cmake -S . -B build-tidy -DCMAKE_BUILD_TYPE=Release >/dev/null
# shellcheck disable=SC2016 # the inner shell expands it
attend bash -c 'printf "%s\0" "${@:2}" | xargs -0 -P "$1" -n 1 clang-tidy -p build-tidy --quiet 2>/dev/null' \
    tidy "$(nproc)" "${files[@]}"
echo "clang-tidy: ${#files[@]} files, nothing found"
