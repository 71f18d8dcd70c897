#!/bin/bash
# cross.sh - builds the program for the switch, a 64-bit Arm Linux, and lays out in build-aarch64/stage what goes onto
# the switch's image. "test" then runs the tests of the whole program on just that: the program is emulated, the virtual
# switch and the tests themselves run on this machine's own processor. Installs what is missing.
set -euo pipefail
cd "$(dirname "$0")/.."
. tools/packages.sh
export LC_ALL=C # what other programs print is read below

test=
options=()
for word; do
    case $word in
        test) test=yes ;;
        -D?*) options+=("$word") ;;
        *)
            echo "usage: $0 [test] [-DNAME=VALUE...]" >&2
            echo "  -DCMAKE_INSTALL_PREFIX=DIR   the prefix on the switch (/usr)" >&2
            echo "  -DSWITCHING_CGI_DIR=DIR      where the program goes (libexec/switching, below the prefix)" >&2
            echo "  -DSWITCHING_CONF_DIR=DIR     where its configuration goes (etc/lighttpd/conf.d; /etc for /usr)" >&2
            exit 2 ;;
    esac
done
if [ "$(dpkg --print-architecture)" = arm64 ]; then
    echo "This machine is a 64-bit Arm itself: build with plain cmake, and test with test.sh." >&2
    exit 2
fi

# build DIRECTORY TARGET...: quietly, unless something is wrong
build()
{
    cmake --build "$1" -j "$(nproc)" --target "${@:2}" >"$1/build.log" 2>&1 || { cat "$1/build.log" >&2; return 1; }
    if grep 'warning:' "$1/build.log" >&2; then
        echo "The build has warnings." >&2
        return 1
    fi
}

need g++-aarch64-linux-gnu libcjson-dev:arm64 cmake make
aarch64=$PWD/build-aarch64
stage=$aarch64/stage
cmake --fresh -S . -B "$aarch64" -DCMAKE_TOOLCHAIN_FILE="$PWD/deploy/aarch64.cmake" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX=/usr "${options[@]}" >/dev/null
build "$aarch64" switching_v2.cgi
rm -rf "$stage"
DESTDIR=$stage cmake --install "$aarch64" --strip >/dev/null

# What is staged is for the right processor, finds the switch's own libraries, and brings no stand-in along.
program=$(find "$stage" -name switching_v2.cgi)
snippet=$(find "$stage" -name switching_v2.conf)
aarch64-linux-gnu-readelf -hdVW "$program" >"$aarch64/readelf.log"
# The dynamic loader is on the list because it owns the stack guard; it is there in any case.
needed=$(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' "$aarch64/readelf.log" | grep -v '^ld-linux-' | xargs)
libc=$(grep -o 'GLIBC_[0-9.]*' "$aarch64/readelf.log" | sort -uV | tail -1)
wrong=()
grep -q 'Machine: *AArch64' "$aarch64/readelf.log" || wrong+=("the program is not for AArch64")
[ "$needed" = 'libopenclt.so libproc_libs.so libcjson.so.1 libc.so.6' ] || wrong+=("the program needs $needed")
! grep -E '\((RPATH|RUNPATH)\)' "$aarch64/readelf.log" || wrong+=("the program has a run path")
grep -qF "\"${program#"$stage"}/\"" "$snippet" || wrong+=("the web server looks for the program elsewhere")
[ "$(find "$stage" ! -type d | wc -l)" = 2 ] || wrong+=("other files: $(find "$stage" ! -type d -printf '/%P ')")
if [ ${#wrong[@]} -gt 0 ]; then
    printf 'cross.sh: %s\n' "${wrong[@]}" >&2
    exit 1
fi
echo "build-aarch64/stage holds, for the switch's image:"
(cd "$stage" && find . ! -type d -printf '  /%P (%s bytes, mode %m)\n')
echo "There the program needs $needed (${libc/_/ } or newer)."
echo "Its symbols, for addr2line and crash records: build-aarch64/switching_v2.cgi"
[ "$test" ] || exit 0

# The emulator is the statically linked one: LD_PRELOAD and LD_LIBRARY_PATH then mean the emulated program alone. The C
# library and cJSON are those of this machine's arm64 packages; the processor is one without the later extensions.
need g++ libcjson-dev libgtest-dev libgmock-dev qemu-user-static
build "$aarch64" sandbox
cmake -S . -B build-test -DCMAKE_BUILD_TYPE=Release >/dev/null
build build-test vswitch system_tests
TEST_LAUNCHER="qemu-aarch64-static -cpu cortex-a53" TEST_PROGRAM=$program TEST_LIBRARIES=$aarch64/lib \
    TEST_SANDBOX=$aarch64/lib/libsandbox.so \
    ctest --test-dir build-test -L program -j "$(nproc)" --output-on-failure --no-tests=error
