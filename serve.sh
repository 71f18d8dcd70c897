#!/bin/bash
# serve.sh - installs what is missing, builds, and serves the REST interface of a virtual switch on this machine until
# you press Ctrl-C. It leaves nothing behind: no process, no session.
#
#   --port N            listen on this loopback port (8080); 0: on a free one
#   --ports N           ports of the switch (28)
#   --stations N        addresses that the switch has learned at the start (8)
#   --station-vlans N   VLANs 1 to N exist at the start and share the stations (1)
#   --own-files         keep session, log and log level in a temporary directory instead of /tmp, as happens anyway
#                       when those in /tmp belong to another user
#   --hosts N           as root: plug network namespaces h1 to hN into ports 1 to N, and serve through the management
#                       port as well; the switch then has no other traffic
#   --sockets N         ports 1 to N are sockets to which programs connect as hosts; the switch then has no other
#                       traffic
#   --json              print one line of JSON and nothing else when it serves: port, base, tokens (admin, writer,
#                       reader), socket (for vswitch COMMAND), trace, sockets, files (the directory of session, log and
#                       log level). It then also ends when its standard input is a pipe that ends
#   --resident          the program stays and serves by SCGI, instead of a process for each request
#   --build DIR         serve what was built there; install and build nothing
. "$(dirname "$0")/tools/script.sh"
. "$root/tools/packages.sh"
. "$root/tools/servers.sh"
. "$root/tools/hosts.sh"
cd "$root"

port=8080 build='' private='' resident='' hosts=0 sockets=0 json=''
switch=()
while [ $# -gt 0 ]; do
    case $1 in
        --port) number "$1" "${2-}" 0 65535; port=$2 ;;
        --ports) number "$1" "${2-}" 1 4096; switch+=("$1" "$2") ;;
        --stations) number "$1" "${2-}" 0 65536; switch+=("$1" "$2") ;;
        --station-vlans) number "$1" "${2-}" 1 4094; switch+=("$1" "$2") ;;
        --hosts) number "$1" "${2-}" 1 28; hosts=$2 ;;
        --sockets) number "$1" "${2-}" 1 4096; sockets=$2 ;;
        --own-files) private=private; shift; continue ;;
        --json) json=json; shift; continue ;;
        --resident) resident=yes; shift; continue ;;
        --build) builtIn "${2-}" switching_v2.conf switching_v2_resident.conf switching_console.conf vswitch lib/libsandbox.so ;;
        *) wrong "there is no option \"$1\"" ;;
    esac
    shift 2
done

removeLeft
if [ $hosts != 0 ]; then
    ! why=$(cannotHaveHosts) || fail "$why; everything else works without --hosts"
    plugHosts 0 $hosts
    switch+=("${plugs[@]}")
fi
if [ ! "$build" ]; then
    need g++ cmake make libcjson-dev lighttpd curl
    build=$root/build
    [ -d "$build" ] || echo "Building: half a minute, the first time" >&2
    compile "$build" "switching_v2.cgi vswitch sandbox" -DBUILD_TESTING=OFF
fi

# Prints where everything is, for programs.
jsonLine()
{
    printf '{"port": %d, "base": "%s", "tokens": {"admin": "%s", "writer": "%s", "reader": "%s"}, ' \
        "$port" "$base" "$token" "$writer" "$reader"
    printf '"socket": "%s", "trace": "%s", "sockets": %d, "files": "%s"}\n' "$OPENCLT_SOCKET" "$run/trace" $sockets "$files"
}

# Whether no server has ended.
allRun()
{
    local pid
    for pid in "${pids[@]}"; do kill -0 "$pid" 2>/dev/null || return 1; done
}

# Ends the script when a server has ended, or the pipe of the program that started it.
waitForEnd()
{
    if [ "$json" ] && [ -p /dev/stdin ]; then
        while allRun; do read -r -t 1 || [ $? -gt 128 ] || finish 0; done
    fi
    wait -n "${pids[@]}" || true
    cat "$run"/*.log >&2
    fail "a server has ended; stopping"
}

trap 'finish 0' INT TERM HUP # the normal end
scratch
filesOf "$build" $private
makeSessions
for ((i = 1; i <= sockets; i++)); do switch+=(--plug "$i=unix:$run/port$i"); done
[ "$port" != 0 ] || port=$(anyPorts)
startSwitch switch "$build" "${switch[@]}" --trace "$run/trace"
startWebServer "$build" "$port" "\"LD_LIBRARY_PATH\" => \"$build/lib\", $preload" \
    "$(consoleFor "$build" "$token" "$writer" "$reader")
\$HTTP[\"url\"] == \"/console/openapi.json\" { alias.url = (\"/console/openapi.json\" => \"$run/openapi.json\") }" ||
    fail "the web server did not start: see above. Is port $port taken? Choose another with --port."
[ $hosts = 0 ] || serveHosts $hosts

base=http://127.0.0.1:$port/api/v2/switching
description=$(sed -n 's|.*"/console/openapi.json" => "\([^"]*\)".*|\1|p' "$build/switching_console.conf")
sed "s|\"url\": \"/api/v2/switching\"|\"url\": \"$base\"|" "$description" >"$run/openapi.json" # ready to import
if [ "$json" ]; then
    jsonLine
    waitForEnd
fi
first=$base/bridge/dot1d-base-bridge-address
answer=$(curl -s --max-time 30 -H "@$run/header" "$first")

cat <<END

\$ curl -H 'Session: $token' $first
$answer

The switch in a browser:            http://127.0.0.1:$port/console/#session=$token
  as a user who reads and writes:   http://127.0.0.1:$port/console/#session=$writer
  as a user who only reads:         http://127.0.0.1:$port/console/#session=$reader

The switch serves on $base/ until you press Ctrl-C. In another terminal:

  session='Session: $token'
  base=$base
  curl -H "\$session" \$base/bridge/dot1d-stp-priority
  curl -H "\$session" "\$base/bridge/dot1d-stp-port-state?port=3"
  curl -H "\$session" -X PUT -d '{"agingTime": 400}' \$base/bridge/db-dot1d-tp-aging-time
  curl -H "\$session" -d '' "\$base/vlan/create?vlanNum=10"

The description, for clients and generators: http://127.0.0.1:$port/console/openapi.json

What the program asks the switch:      tail -f $run/trace
How to make the switch fail, or reset: export OPENCLT_SOCKET=$OPENCLT_SOCKET; $(printf %q "$build/vswitch") --help
The program's log:                     $files/zt731.log
END
[ $hosts = 0 ] || printHostsHelp
[ "$private" ] || [ "$files" = /tmp ] ||
    echo "(The program's files in /tmp belong to another user; this program uses $files instead.)"
waitForEnd
