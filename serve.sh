#!/bin/bash
# serve.sh - installs what is missing, builds, and serves the interface of a virtual switch on this machine until it is
# stopped (Ctrl-C). Nothing is left behind: no process, no session.
set -euo pipefail
cd "$(dirname "$0")"
. tools/packages.sh
. tools/servers.sh

port=8080
switch=()
while [ $# -gt 0 ]; do
    case $1 in
        --port) port=${2:?--port takes a number}; shift 2 ;;
        --ports | --stations | --station-vlans) switch+=("$1" "${2:?$1 takes a number}"); shift 2 ;;
        *)
            echo "usage: $0 [--port N] [--ports N] [--stations N] [--station-vlans N]" >&2
            echo "  --port N   listen on this loopback port (8080); the others: see ./build/vswitch --help" >&2
            exit 2 ;;
    esac
done
case $port in *[!0-9]* | '') echo "--port takes a number, not \"$port\"" >&2; exit 2 ;; esac

need g++ cmake make libcjson-dev lighttpd curl
cmake -S . -B build -DBUILD_TESTING=OFF >/dev/null
cmake --build build -j "$(nproc)" >/dev/null

run=$(mktemp -d)
token=$(od -An -N16 -tx1 /dev/urandom | tr -d ' \n')
finish()
{
    trap - EXIT INT TERM HUP
    stopServers
    rm -rf "$run" "/tmp/session/$token"
}
trap finish EXIT
trap 'exit 0' INT TERM HUP

# The program's own files lie where they lie on a switch.
mkdir -p /tmp/session 2>/dev/null || true
for file in /tmp/session /tmp/zt731.log /tmp/devmgr_log_level; do
    if [ -e $file ] && [ ! -w $file ]; then
        echo "$file belongs to somebody else; remove it, or run this as its owner." >&2
        exit 1
    fi
done

startSwitch switch build "${switch[@]}" --trace "$run/trace"
if ! startWebServer build "$port" ""; then
    echo "The web server did not start: see above. Is port $port taken? Choose another with --port." >&2
    exit 1
fi

(umask 077; printf 'admin\n0\n%s' "$token" >"/tmp/session/$token")
base=http://127.0.0.1:$port/api/v2/switching
first=$base/bridge/dot1d-base-bridge-address
answer=$(curl -s --max-time 30 -H "Session: $token" "$first")

cat <<END

\$ curl -H 'Session: $token' $first
$answer

The switch serves on $base/ until you press Ctrl-C. In another terminal:

  session='Session: $token'
  base=$base
  curl -H "\$session" \$base/bridge/dot1d-stp-priority
  curl -H "\$session" "\$base/bridge/dot1d-stp-port-state?port=3"
  curl -H "\$session" -X PUT -d '{"agingTime": 400}' \$base/bridge/db-dot1d-tp-aging-time
  curl -H "\$session" -d '' "\$base/vlan/create?vlanNum=10"

What the program asks the switch:      tail -f $run/trace
How to make the switch fail, or reset: export OPENCLT_SOCKET=$OPENCLT_SOCKET; ./build/vswitch --help
The program's log:                     /tmp/zt731.log
END
wait -n "${pids[@]}" || true
cat "$run"/*.log >&2
echo "A server has ended; stopping." >&2
exit 1
