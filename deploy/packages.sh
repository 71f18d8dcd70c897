#!/bin/bash
# packages.sh [test] [ARCHITECTURE...] - builds the Debian packages into build-packages, by default for this machine's
# architecture and arm64: switching-v2 (the program, its configuration for lighttpd, the description of the interface)
# and switching-vswitch (the virtual switch, its replacements for a switch's libraries, the console, and serve.sh as the
# command switching-serve), python3-switching (the Python client), and for each of the first two a package with its symbols (-dbgsym). Installs what it needs.
#
#   test   then checks the packages with lintian, and installs, uses and removes them in a fresh root: as root only
. "$(dirname "$0")/../tools/script.sh"
. "$root/tools/packages.sh"
cd "$root"
export LC_ALL=C

native=$(dpkg --print-architecture)
test='' architectures=()
for argument; do
    case $argument in
        test) test=yes ;;
        "$native" | arm64) architectures+=("$argument") ;;
        *) wrong "\"$argument\" is neither test nor an architecture: $native or arm64" ;;
    esac
done
[ ${#architectures[@]} -gt 0 ] || mapfile -t architectures < <(printf '%s\n' "$native" arm64 | sort -u)
[ ! "$test" ] || [ "$(id -u)" = 0 ] || fail "only root can test packages"

out=build-packages
date=$(git log -1 --format=%cI 2>/dev/null || date -Iseconds) # the same commit gives the same packages
sourced=(tools/{script,packages,servers,hosts,command}.sh) # by serve.sh, which is switching-serve; the last is a CGI
export SOURCE_DATE_EPOCH
SOURCE_DATE_EPOCH=$(date -d "$date" +%s)

# manual FILE ROOT: installs a man page.
manual()
{
    local directory=$2/usr/share/man/man${1##*.}
    mkdir -p "$directory"
    sed "s/@PROJECT_VERSION@/$version/" "deploy/man/$1" | gzip -9n >"$directory/$1.gz"
}

# pack NAME ARCHITECTURE ROOT DEPENDS RECOMMENDS DESCRIPTION: adds what every package has, and makes the package.
pack()
{
    local name=$1 architecture=$2 directory=$3 documents=$3/usr/share/doc/$1 section=net
    case $name in *-dbgsym) section=debug ;; esac
    mkdir -p "$documents" "$directory/DEBIAN"
    printf '%s (%s) stable; urgency=medium\n\n  * See CHANGELOG.md in the sources.\n\n -- %s  %s\n' switching-v2 \
        "$version" "$maintainer" "$(date -R -u -d "$date")" | gzip -9n >"$documents/changelog.gz"
    printf 'switching_v2.cgi, Copyright (C) 2026 its developers.\n\nNo licence has been stated for it.\n' >"$documents/copyright"
    cat >"$directory/DEBIAN/control" <<END
Package: $name
Version: $version
Architecture: $architecture
Maintainer: $maintainer
Installed-Size: $(du -sk --exclude=DEBIAN "$directory" | cut -f1)
Depends: $4
Section: $section
Priority: optional
${5:+Recommends: $5
}Description: $6
END
    (cd "$directory" && find . -path ./DEBIAN -prune -o -type f -printf '%P\0' | sort -z | xargs -0 md5sum >DEBIAN/md5sums)
    find "$directory" -path "$directory/etc/*" -type f -printf '/%P\n' >"$directory/DEBIAN/conffiles"
    [ -s "$directory/DEBIAN/conffiles" ] || rm "$directory/DEBIAN/conffiles"
    find "$directory" -exec touch -h -d "$date" {} +
    dpkg-deb --root-owner-group -Zxz --build "$directory" "$out" >/dev/null
    echo "$out/${name}_${version}_$architecture.deb holds:"
    dpkg-deb -c "$out/${name}_${version}_$architecture.deb" | awk '$1 !~ /^d/ { print "  " substr($6, 2), "(" $3 " bytes)" }'
}
maintainer="switching_v2.cgi developers <developers@localhost>"

# packSymbols NAME ARCHITECTURE TOOLS FILE...: makes a package with the line numbers of these files; TOOLS is the prefix of
# the processor's binutils.
packSymbols()
{
    local directory=$out/$1-dbgsym-$2 id file
    rm -rf "$directory"
    for file in "${@:4}"; do
        id=$(readelf -n "$file" | sed -n 's/.*Build ID: //p')
        mkdir -p "$directory/usr/lib/debug/.build-id/${id:0:2}"
        "$3objcopy" --only-keep-debug --compress-debug-sections "$file" \
            "$directory/usr/lib/debug/.build-id/${id:0:2}/${id:2}.debug"
        chmod 644 "$directory/usr/lib/debug/.build-id/${id:0:2}/${id:2}.debug"
    done
    pack "$1-dbgsym" "$2" "$directory" "$1 (= $version)" "" \
"debug symbols for $1
 Debuggers and addr2line find these files by the build id."
}

# packages ARCHITECTURE [CMAKE-OPTION...]: makes both packages, and those of their symbols.
packages()
{
    local architecture=$1 build=build-package-$1 program=$out/switching-v2-$1 switch=$out/switching-vswitch-$1
    local shared libraries tools='' libc triplet=x86_64-linux-gnu available enabled reload
    shift
    if [ "$architecture" = arm64 ]; then triplet=aarch64-linux-gnu; fi
    if [ "$architecture" != "$native" ]; then tools=$triplet-; fi
    compile "$build" "switching_v2.cgi vswitch sandbox" -DBUILD_TESTING=OFF -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_INSTALL_PREFIX=/usr -DSWITCHING_CONF_DIR=etc/lighttpd/conf-available "$@"
    version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
    rm -rf "$program" "$switch"
    umask 022

    DESTDIR=$root/$program cmake --install "$build" --strip >/dev/null
    grep -aq "switching_v2.cgi $version" "$program/usr/libexec/switching/switching_v2.cgi" || fail "the program has no version"
    available=/etc/lighttpd/conf-available/50-switching-v2
    mv "$program/etc/lighttpd/conf-available/switching_v2.conf" "$program$available.conf"
    mv "$program/usr/share/switching/switching_v2_resident.conf" "$program$available-resident.conf"
    mkdir -p "$program/DEBIAN"
    enabled=/etc/lighttpd/conf-enabled/50-switching-v2
    reload="invoke-rc.d --quiet lighttpd reload || true"
    # A running web server takes the new configuration, and starts the resident program anew: also (by the trigger) when
    # the switch's libraries have changed.
    printf '#!/bin/sh\nset -e\nif [ "$1" != configure ] && [ "$1" != triggered ]; then exit 0; fi\nif [ -e %s ] || [ -e %s ]; then\n    %s\nfi\n' \
        $enabled.conf $enabled-resident.conf "$reload" >"$program/DEBIAN/postinst"
    printf 'interest-noawait /usr/lib%s/%s\n' '' libopenclt.so '' libproc_libs.so "/$triplet" libopenclt.so "/$triplet" \
        libproc_libs.so >"$program/DEBIAN/triggers"
    # Without the program its configuration would stop the web server from starting.
    printf '#!/bin/sh\nset -e\nif [ "$1" = remove ] && { [ -L %s ] || [ -L %s ]; }; then\n    rm -f %s %s\n    %s\nfi\n' \
        $enabled{,-resident}.conf $enabled{,-resident}.conf "$reload" >"$program/DEBIAN/prerm"
    chmod 755 "$program/DEBIAN/postinst" "$program/DEBIAN/prerm"
    libc=$(objdump -T "$program/usr/libexec/switching/switching_v2.cgi" 2>/dev/null |
           grep -o 'GLIBC_[0-9.]*' | sort -uV | tail -1)
    pack switching-v2 "$architecture" "$program" "libc6 (>= ${libc:+${libc#*_}}), libcjson1 (>= 1.7.14)" lighttpd \
"switching section of a managed switch's REST interface
 A CGI program with endpoints for bridge and spanning tree, forwarding
 database, filters, storm control, VLANs and voice. It translates each request
 into calls of the switch's management API.
 .
 \"lighty-enable-mod switching-v2\" enables its configuration for lighttpd, with
 a process for each request; \"lighty-enable-mod switching-v2-resident\" enables
 the other one, with processes that stay. The switch's own libraries,
 libopenclt.so and libproc_libs.so, are not included."
    packSymbols switching-v2 "$architecture" "$tools" "$build/switching_v2.cgi"

    libraries=$switch/usr/lib/$triplet/switching-vswitch
    shared=$switch/usr/share/switching-vswitch
    mkdir -p "$libraries/lib" "$switch/usr/bin" "$shared"
    install -m 755 "$build/vswitch" "$switch/usr/bin"
    ln -s ../../../bin/vswitch "$libraries/vswitch"
    install -m 644 "$build"/lib/lib{openclt,proc_libs,sandbox}.so "$libraries/lib"
    ${tools}strip --strip-unneeded --remove-section=.comment "$switch/usr/bin/vswitch" "$libraries"/lib/*.so
    ln -s "$available.conf" "$libraries/switching_v2.conf"
    ln -s "$available-resident.conf" "$libraries/switching_v2_resident.conf"
    install -m 755 serve.sh "$shared"
    install -D -m 644 -t "$shared/tools" "${sourced[@]}"
    chmod 755 "$shared/tools/command.sh"
    install -D -m 644 -t "$shared/console" console/*
    install -m 644 api/openapi.json "$shared"
    sed "s|@SWITCHING_API_PATH@|/usr/share/switching-vswitch/openapi.json|; s|@SWITCHING_CONSOLE_DIR@|/usr/share/switching-vswitch/console|" \
        deploy/switching_console.conf.in >"$libraries/switching_console.conf"
    printf '#!/bin/sh\nexec /usr/share/switching-vswitch/serve.sh --build /usr/lib/%s/switching-vswitch "$@"\n' "$triplet" \
        >"$switch/usr/bin/switching-serve"
    chmod 755 "$switch/usr/bin/switching-serve"
    manual vswitch.1 "$switch"
    ln -s vswitch.1.gz "$switch/usr/share/man/man1/switching-serve.1.gz"
    pack switching-vswitch "$architecture" "$switch" \
        "switching-v2 (= $version), bash (>= 5.1), curl, libc6 (>= 2.34), libgcc-s1, libstdc++6 (>= 12), lighttpd (>= 1.4.66)" \
        "" \
"virtual switch for the REST interface of switching-v2
 Answers every call of switching_v2.cgi from a simulated switch in memory.
 \"switching-serve\" serves the REST interface on a loopback port, so that
 clients, pages and tests can be written without a switch."
    packSymbols switching-vswitch "$architecture" "$tools" "$build/vswitch" "$build"/lib/lib{openclt,proc_libs}.so
}

# pythonClient: makes the package of the Python client, which is the same for all architectures.
pythonClient()
{
    local client=$out/python3-switching python
    python=$client/usr/lib/python3/dist-packages
    rm -rf "$client"
    umask 022
    install -D -m 644 -t "$python/switching" client/python/switching/*.py api/openapi.json api/state.toml
    mkdir -p "$python/switching-$version.dist-info" "$client/usr/bin" "$client/usr/share/bash-completion/completions"
    printf 'Metadata-Version: 2.1\nName: switching\nVersion: %s\n' "$version" >"$python/switching-$version.dist-info/METADATA"
    printf '[pytest11]\nswitching = switching.fixtures\n' >"$python/switching-$version.dist-info/entry_points.txt"
    printf '#!/bin/sh\nexec /usr/bin/python3 -m switching "$@"\n' >"$client/usr/bin/switching"
    chmod 755 "$client/usr/bin/switching"
    PYTHONPATH=client/python python3 -B -m switching completion >"$client/usr/share/bash-completion/completions/switching"
    manual switching.1 "$client"
    mkdir -p "$client/DEBIAN"
    printf '#!/bin/sh\nset -e\npy3compile -p python3-switching\n' >"$client/DEBIAN/postinst"
    printf '#!/bin/sh\nset -e\npy3clean -p python3-switching\n' >"$client/DEBIAN/prerm"
    chmod 755 "$client/DEBIAN"/p*
    pack python3-switching all "$client" "python3 (>= 3.11)" switching-vswitch \
"client for the REST interface of switching-v2
 Requests from Python and from the command line, checked against the
 description of the interface, and pytest fixtures that start a virtual switch
 for tests."
}

need g++ cmake make libcjson-dev git gzip python3
case " ${architectures[*]} " in *" arm64 "*) [ "$native" = arm64 ] || need g++-aarch64-linux-gnu libcjson-dev:arm64 ;; esac
mkdir -p "$out"
rm -f "$out"/*.deb
for architecture in "${architectures[@]}"; do
    if [ "$architecture" = "$native" ]; then
        packages "$architecture"
    else
        packages "$architecture" -DCMAKE_TOOLCHAIN_FILE="$root/deploy/aarch64.cmake"
    fi
done
pythonClient
[ "$test" ] || exit 0
deploy/packages_test.sh
