#!/bin/bash
# toolchains.sh [NAME...] - builds the program as an image builder may, and sends one request through each: with g++-11 and
# clang++-14, and for the musl C library (musl). Installs what is missing.
. "$(dirname "$0")/../tools/script.sh"
. "$root/tools/packages.sh"
. "$root/tools/servers.sh"
cd "$root"

for name; do
    case $name in g++-11 | clang++-14 | musl) ;; *) wrong "there is no toolchain \"$name\"" ;; esac
done
[ $# -gt 0 ] || set -- g++-11 clang++-14 musl
packages="g++ cmake make libcjson-dev"
case " $* " in *" g++-11 "*) packages+=" g++-11" ;; esac
case " $* " in *" clang++-14 "*) packages+=" clang-14" ;; esac
case " $* " in *" musl "*) packages+=" musl-tools" ;; esac
# shellcheck disable=SC2086 # one package each
need $packages
scratch
export LC_ALL=C

# muslOptions DIRECTORY: Debian's musl has no C++ headers and no libcjson. The program takes one header of C++; of Debian's
# libcjson it takes all but a function that musl lacks.
muslOptions()
{
    local include=$1/include specs
    specs=/usr/lib/$(gcc -dumpmachine | sed 's/-gnu$/-musl/')/musl-gcc.specs
    mkdir -p "$include"
    ln -sfn /usr/include/cjson "$include/cjson"
    cat >"$include/initializer_list" <<'END'
#pragma once
namespace std {
template <class Element> class initializer_list {
    const Element *first = nullptr; // the compiler sets both members
    decltype(sizeof 0) count = 0;
public:
    constexpr auto size() const noexcept { return count; }
    constexpr auto begin() const noexcept { return first; }
    constexpr auto end() const noexcept { return first + count; }
};
}
END
    cat >"$1/sprintf.c" <<'END'
#include <stdarg.h>
#include <stdio.h>
int __sprintf_chk(char *to, int flag, size_t size, const char *format, ...)
{
    (void)flag, (void)size;
    va_list arguments;
    va_start(arguments, format);
    int length = vsprintf(to, format, arguments);
    va_end(arguments);
    return length;
}
END
    musl-gcc -fPIC -c "$1/sprintf.c" -o "$1/sprintf.o"
    options=(-DCMAKE_CXX_COMPILER=g++ "-DCMAKE_CXX_FLAGS=-specs=$specs -isystem $include"
        -DCJSON_LIBRARY="$(find /usr/lib/"$(gcc -dumpmachine)" -name libcjson.so)" -DCJSON_INCLUDE_DIR="$include"
        -DCMAKE_EXE_LINKER_FLAGS=-Wl,--allow-shlib-undefined "-DCMAKE_SHARED_LINKER_FLAGS=$1/sprintf.o")
}

compile build vswitch -DBUILD_TESTING=OFF
filesOf build private
makeSession
startSwitch switch build
for name; do
    build=$root/build-$name options=(-DCMAKE_CXX_COMPILER="$name")
    mkdir -p "$build"
    [ "$name" != musl ] || muslOptions "$build"
    rm -rf "$build/lib"
    compile "$build" switching_v2.cgi -DBUILD_TESTING=OFF -DCMAKE_BUILD_TYPE=Release -DCMAKE_COMPILE_WARNING_AS_ERROR=ON "${options[@]}"
    [ ! -e "$build/lib/libproc_libs.so" ] || fail "$name: with the program its stand-ins are built"
    # To run it here. (The crash recorder needs Debian's C library.)
    if [ "$name" = musl ]; then
        compile "$build" "sandbox openclt"
        ln -sf ../empty/libproc_libs.so "$(ldconfig -p | sed -n 's|.* => \(/.*/libcjson.so.1\)$|\1|p' | head -n 1)" "$build/lib"
    else
        compile "$build" "sandbox openclt proc_libs"
    fi
    answer=$(env REQUEST_METHOD=GET REQUEST_URI=/api/v2/switching/bridge/dot1d-stp-priority HTTP_SESSION=nobody \
        SANDBOX_TMP="$files" LD_PRELOAD="$build/lib/libsandbox.so" "$build/switching_v2.cgi" </dev/null | tr -d '\r\n')
    [ "$answer" = Status:403 ] || fail "$name: without a session the program answers $answer"
    HTTP_SESSION=$token; export HTTP_SESSION
    answer=$(env REQUEST_METHOD=GET REQUEST_URI=/api/v2/switching/bridge/dot1d-stp-priority \
        SANDBOX_TMP="$files" LD_PRELOAD="$build/lib/libsandbox.so" "$build/switching_v2.cgi" </dev/null)
    grep -q '"priority":	32768' <<<"$answer" || fail "$name: the program answers $answer"
    # The C library's stream must keep the header until the answer is there: this body's memory cannot be had.
    answer=$(env REQUEST_METHOD=PUT REQUEST_URI=/api/v2/switching/macal/rule-is-service-port CONTENT_LENGTH=100000000000000 \
        SANDBOX_TMP="$files" LD_PRELOAD="$build/lib/libsandbox.so" "$build/switching_v2.cgi" <<<macalName=mgmt) || true
    [ ! "$answer" ] || fail "$name: without memory the program answers $answer"
    unset HTTP_SESSION
    echo "$name: built, and answers"
done
