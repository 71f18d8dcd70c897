#!/bin/bash
# cross.sh - builds the program for the switch, a 64-bit Arm Linux, and puts into build-aarch64/stage the files for the
# switch's image. Installs what is missing.
#
#   test                          run the tests of the whole program: it is emulated, while the virtual switch and the
#                                 tests run on this machine's processor
#   --libraries DIR               list the functions that the program calls and the switch's libraries in DIR lack
#   -DCMAKE_INSTALL_PREFIX=DIR    the prefix on the switch (/usr)
#   -DSWITCHING_CGI_DIR=DIR       directory of the program (libexec/switching, below the prefix)
#   -DSWITCHING_CONF_DIR=DIR      directory of its configuration (etc/lighttpd/conf.d below the prefix; /etc for /usr)
. "$(dirname "$0")/../tools/script.sh"
. "$root/tools/packages.sh"
cd "$root"
export LC_ALL=C # the output of other programs is read below

test='' libraries=''
options=()
while [ $# -gt 0 ]; do
    case $1 in
        test) test=yes ;;
        --libraries)
            compgen -G "${2-}/*.so*" >/dev/null || wrong "--libraries takes a directory with libraries, not \"${2-}\""
            libraries=$(cd "$2" && pwd -P)
            shift ;;
        -D?*) options+=("$1") ;;
        *) wrong "there is no argument \"$1\"" ;;
    esac
    shift
done
[ "$(dpkg --print-architecture)" != arm64 ] ||
    fail "this machine is a 64-bit Arm itself: build with plain cmake, and test with test.sh"

need g++-aarch64-linux-gnu libcjson-dev:arm64 cmake make
aarch64=$root/build-aarch64
stage=$aarch64/stage

# Operations are bound when they are called: without this check, the first client to need one finds that it is missing.
if [ "$libraries" ]; then
    mkdir -p "$aarch64"
    {
        sed -n 's/^OPEN_OPERATION(\([A-Za-z0-9_]*\).*/\1/p' platform/include/openclt_operations.def
        grep -oh 'openapi[A-Za-z]*(\|l7proc_[a-z_]*(' platform/include/openclt.h platform/include/proc_libs.h | tr -d '('
    } | sort -u >"$aarch64/called"
    for library in "$libraries"/*.so*; do
        aarch64-linux-gnu-readelf -h "$library" 2>/dev/null | grep -q 'Machine: *AArch64' ||
            fail "$library is no library for AArch64"
        aarch64-linux-gnu-nm -D --defined-only "$library" | awk '{ sub(/@.*/, "", $NF); print $NF }'
    done | sort -u >"$aarch64/offered"
    missing=$(comm -23 "$aarch64/called" "$aarch64/offered")
    [ ! "$missing" ] || fail "the libraries in $libraries lack:"$'\n'"$missing"
    echo "The libraries in $libraries offer all $(wc -l <"$aarch64/called") functions that the program calls."
fi

targets=switching_v2.cgi
[ ! "$test" ] || targets+=" sandbox openclt proc_libs"
compile "$aarch64" "$targets" --fresh -DCMAKE_TOOLCHAIN_FILE="$root/deploy/aarch64.cmake" \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_COMPILE_WARNING_AS_ERROR=ON -DCMAKE_INSTALL_PREFIX=/usr "${options[@]}"
rm -rf "$stage"
DESTDIR=$stage cmake --install "$aarch64" --strip >/dev/null

# Checks the staged files: the processor, the libraries, and that no replacement of a switch's library is there.
program=$(find "$stage" -name switching_v2.cgi)
snippet=$(find "$stage" -name switching_v2.conf)
aarch64-linux-gnu-readelf -hdVW "$program" >"$aarch64/readelf.log"
# The dynamic loader is listed because it holds the stack guard; every program needs it.
needed=$(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' "$aarch64/readelf.log" | grep -v '^ld-linux-' | xargs)
libc=$(grep -o 'GLIBC_[0-9.]*' "$aarch64/readelf.log" | sort -uV | tail -1)
faults=()
grep -q 'Machine: *AArch64' "$aarch64/readelf.log" || faults+=("the program is not for AArch64")
[ "$needed" = 'libopenclt.so libproc_libs.so libcjson.so.1 libc.so.6' ] || faults+=("the program needs $needed")
! grep -E '\((RPATH|RUNPATH)\)' "$aarch64/readelf.log" || faults+=("the program has a run path")
aarch64-linux-gnu-readelf -p .version "$program" | grep -q 'switching_v2.cgi [0-9]' || faults+=("it has no version")
grep -qF "\"${program#"$stage"}/\"" "$snippet" || faults+=("the configuration names another directory for the program")
[ "$(find "$stage" ! -type d | wc -l)" = 7 ] || faults+=("other files: $(find "$stage" ! -type d -printf '/%P ')")
if [ ${#faults[@]} -gt 0 ]; then
    printf 'cross.sh: %s\n' "${faults[@]}" >&2
    exit 1
fi
echo "build-aarch64/stage holds, for the switch's image:"
(cd "$stage" && find . ! -type d -printf '  /%P (%s bytes, mode %m)\n')
echo "There the program needs $needed (${libc/_/ } or newer)."
echo "Its symbols, for addr2line and crash records: build-aarch64/switching_v2.cgi"

[ "$test" ] || exit 0

# The emulator is linked statically, so that LD_PRELOAD and LD_LIBRARY_PATH affect only the emulated program. The C
# library and cJSON come from this machine's arm64 packages. The emulated processor has none of the later extensions.
need g++ libcjson-dev libgtest-dev libgmock-dev qemu-user-static
compile build-test "vswitch program_tests vswitch_tests" -DCMAKE_BUILD_TYPE=Release -DCMAKE_COMPILE_WARNING_AS_ERROR=ON
export TEST_LAUNCHER="qemu-aarch64-static -cpu cortex-a53" TEST_PROGRAM=$program TEST_LIBRARIES=$aarch64/lib \
    TEST_SANDBOX=$aarch64/lib/libsandbox.so
attend ctest --test-dir build-test -L program -j "$(nproc)" --output-on-failure --no-tests=error
attend tests/resident/resident_test.py build-test ResidentTest.test_{bad_input,log_is_rotated_by_others,switch_restarts,stop}
