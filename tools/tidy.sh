#!/bin/bash
# tidy.sh [FILE...] - installs what is missing, and runs clang-tidy over the named sources, or all of them (some fifteen
# minutes on two cores). Fails when there is a finding.
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/packages.sh

need g++ cmake make libcjson-dev libgtest-dev libgmock-dev clang-tidy
[ $# -gt 0 ] || mapfile -t files < <(git ls-files '*.cpp' ':!tests/fuzz') # the fuzzers need a build by clang
[ $# -eq 0 ] || files=("$@")
cmake -S . -B build-tidy -DCMAKE_BUILD_TYPE=Release >/dev/null
printf '%s\n' "${files[@]}" | xargs -P "$(nproc)" -n 1 clang-tidy -p build-tidy --quiet 2>/dev/null
echo "${#files[@]} files, nothing found"
