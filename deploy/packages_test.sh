#!/bin/bash
# packages_test.sh - checks the packages in build-packages with lintian. Then it makes a fresh root of Debian, installs
# this machine's packages in it, runs switching-serve as an ordinary user, serves the program with Debian's lighttpd, and
# removes the packages. As root; installs what it needs. packages.sh runs it.
. "$(dirname "$0")/../tools/script.sh"
. "$root/tools/packages.sh"
cd "$root"
[ $# = 0 ] || wrong "it takes no arguments"
[ "$(id -u)" = 0 ] || fail "only root can make a fresh root"
export LC_ALL=C

need debootstrap lintian curl
attend lintian --fail-on error,warning --suppress-tags-from-file deploy/lintian.txt build-packages/*.deb
echo "lintian: no errors or warnings except those in deploy/lintian.txt"

scratch
fresh=$run/root
. /etc/os-release
mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' "Codename: $VERSION_CODENAME" | head -n 1)
attend debootstrap --variant=minbase "$VERSION_CODENAME" "$fresh" "$mirror" >"$run/log" 2>&1 || fail "$(tail "$run/log")"
for file in /etc/apt/sources.list /etc/apt/sources.list.d /etc/apt/apt.conf.d /etc/apt/auth.conf.d /etc/resolv.conf; do
    [ ! -e $file ] || cp -rL $file "$fresh${file%/*}"
done
cp build-packages/*_{"$(dpkg --print-architecture)",all}.deb "$fresh/opt"
printf '#!/bin/sh\nexit 101\n' >"$fresh/usr/sbin/policy-rc.d"
chmod 755 "$fresh/usr/sbin/policy-rc.d"
inRoot=(unshare --mount --pid --fork --kill-child "--mount-proc=$fresh/proc" chroot)
within() { attend "${inRoot[@]}" "$fresh" "$@" >"$run/log" 2>&1 || fail "$*: $(tail "$run/log")"; }
export DEBIAN_FRONTEND=noninteractive
within apt-get update -qq
within sh -c 'apt-get install -y -qq --no-install-recommends /opt/*.deb'
(cd "$fresh" && find etc usr var/lib opt -path var/lib/dpkg -prune -o -path var/lib/apt -prune -o -print | grep -i switching | sort) >"$run/installed"
id=$(readelf -n "$fresh/usr/libexec/switching/switching_v2.cgi" | sed -n 's/.*Build ID: //p')
symbols=$fresh/usr/lib/debug/.build-id/${id:0:2}/${id:2}.debug
line=$(addr2line -e "$symbols" "$(nm "$symbols" | awk '$3 == "main" { print $1 }')")
[[ $line =~ main/main.cpp:[0-9]+$ ]] || fail "the symbols of the program know no line of main: $line"
echo "installed: $(grep -c . "$run/installed") files and directories"

# await TEXT COMMAND...: runs the command until it prints the text.
await()
{
    local try
    for ((try = 0; try < 300; try++)); do
        ! "${@:2}" 2>/dev/null | grep -F -- "$1" >/dev/null || return 0
        sleep 0.1
    done
    fail "no \"$1\" from ${*:2}: $("${@:2}" 2>&1 | tail; cat "$run"/*.log)"
}

# As an ordinary user.
port=$(shuf -i 20000-32000 -n 1)
base=http://127.0.0.1:$port/api/v2/switching
launch "${inRoot[@]}" --userspec=games:games "$fresh" switching-serve --port "$port" >"$run/serve.log" 2>&1
await "until you press Ctrl-C" cat "$run/serve.log"
sed -n "s/^  session='\(.*\)'/\1/p" "$run/serve.log" >"$run/header"
await '"priority":	32768' curl -s -H "@$run/header" "$base/bridge/dot1d-stp-priority"
await '<title>' curl -s "${base%/api/*}/console/"
kill -TERM "$(cat "/proc/$!/task/$!/children")"
wait "$!" || true
[ ! "$(ls -A "$fresh/tmp" | grep -v '^zt731.log$\|^devmgr_log_level$')" ] || fail "switching-serve left $(ls -A "$fresh/tmp")"
echo "switching-serve: answered, and left nothing"
client='from switching import Switch
with Switch.serve() as switch: print(switch.get("vlan/next-vlan", vid=0))'
await "{'nextVid': 1}" "${inRoot[@]}" --userspec=games:games "$fresh" python3 -c "$client"
await vlan/next-vlan "${inRoot[@]}" "$fresh" switching paths vlan/next
echo "python3-switching: served, answered"

# With lighttpd as Debian configures it: that sets server.http-parseopts, which changes queries.
rm -rf "$fresh"/tmp/*
within lighty-enable-mod switching-v2
sed -i "s/^server.port .*/server.port = $port/" "$fresh/etc/lighttpd/lighttpd.conf"
# Another user was first: a second name, a link, a directory, a readable file. The script makes the files all the same.
"${inRoot[@]}" --userspec=games:games "$fresh" sh -c 'cd /tmp && echo planted >x && ln x zt731.log &&
    ln -s /etc/passwd devmgr_log_level && mkdir -p session/x zt731.log.old/x'
files_at_boot() { within /usr/libexec/switching/files_at_boot.sh www-data; }
made() { (cd "$fresh/tmp" && stat -c '%n %F %h %U %a' devmgr_log_level session zt731.log* | sed 's/ empty / /'); }
files_at_boot
[ "$(made)" = "devmgr_log_level regular file 1 www-data 660
session directory 2 www-data 700
zt731.log regular file 1 www-data 660
zt731.log.old regular file 1 www-data 660" ] || fail "files_at_boot.sh made $(made)"
[ "$(tr '\0' 0 <"$fresh/tmp/devmgr_log_level")" = 6000 ] && grep -q planted "$fresh/tmp/x" && [ -s "$fresh/etc/passwd" ] ||
    fail "files_at_boot.sh changed other files, or set no level"
echo "a line" >>"$fresh/tmp/zt731.log"
files_at_boot
grep -q 'a line' "$fresh/tmp/zt731.log" || fail "files_at_boot.sh, for the second time, lost the log"
chown root "$fresh/tmp/zt731.log"
files_at_boot
[ "$(stat -c '%U %a' "$fresh/tmp/zt731.log.old")" = "www-data 660" ] && grep -q 'a line' "$fresh/tmp/zt731.log.old" ||
    fail "files_at_boot.sh lost root's log: $(made)"
token=$(newToken)
(umask 077; echo "Session: $token" >"$run/header"; printf 'admin\n0\n%s' "$token" >"$fresh/tmp/session/$token")
within chown -R www-data /tmp/session
launch "${inRoot[@]}" --userspec=www-data:www-data "$fresh" vswitch >"$run/vswitch.log" 2>&1
await "serving" cat "$run/vswitch.log"
# debianServes: starts lighttpd with what is enabled, and waits for an answer.
debianServes()
{
    launch "${inRoot[@]}" "$fresh" sh -c 'LD_LIBRARY_PATH=$(echo /usr/lib/*/switching-vswitch/lib) exec lighttpd -D -f /etc/lighttpd/lighttpd.conf' \
        >"$run/lighttpd.log" 2>&1
    await '"address":	"{\"%41+"' curl -s -g -H "@$run/header" "$base/bridge/dot1d-tp-fdb-entry?address={\"%41+"
}
# reload: as Debian's unit and the rotation of its logs do it. The server starts anew.
reload()
{
    : >"$fresh/var/log/lighttpd/error.log"
    kill -USR1 "$(cat "/proc/${pids[-1]}/task/${pids[-1]}/children")"
    await "server started" cat "$fresh/var/log/lighttpd/error.log"
}
debianServes
reload
curl -s -i "$base/bridge/dot1d-stp-priority" >"$run/refused"
head -n 1 "$run/refused" | grep -q 403 && ! grep -q ERROR "$run/refused" && grep -q '403 Forbidden' "$fresh/tmp/zt731.log" ||
    fail "without a session: $(cat "$run/refused" "$fresh/tmp/zt731.log")"
! "${inRoot[@]}" --userspec=games:games "$fresh" cat /tmp/zt731.log >"$run/log" 2>&1 || fail "another user reads the log"
echo "Debian's lighttpd: answered, with the query unchanged, and logged"
kill -- "-${pids[-1]}" # its whole group: unshare itself ignores the signal
wait "${pids[-1]}" || true
within lighty-disable-mod switching-v2
within lighty-enable-mod switching-v2-resident
within install -d -o www-data -m 700 /run/lighttpd # systemd's tmpfiles do this
debianServes
echo "Debian's lighttpd with the resident program: answered as well"
stopProcesses

within apt-get purge -y -qq python3-switching switching-v2 switching-vswitch switching-v2-dbgsym switching-vswitch-dbgsym
rm "$fresh"/opt/*.deb
left=$(cd "$fresh" && find etc usr var/lib opt -path var/lib/dpkg -prune -o -path var/lib/apt -prune -o -print | grep -i switching || true)
[ ! "$left" ] || fail "removing left: $left"
echo "removed: nothing is left"
