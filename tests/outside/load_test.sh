#!/bin/bash
# load_test.sh BUILD [SECONDS] - for SECONDS (10), many clients with different sessions send requests through lighttpd at
# the same time. Checks every answer, and what remains: the session files, the log, no process. Then come a body that is
# too large, and more clients than processes are allowed, which all close their connections early.
. "$(dirname "$0")/../../tools/script.sh"
. "$root/tools/servers.sh"
builtIn "${1-}" switching_v2.cgi vswitch lib/libsandbox.so
number SECONDS "${2-10}" 1 86400
seconds=${2-10}
scratch
filesOf "$build" private
makeSession admin $'admin\n0\nadmin'
makeSession rw $'joe\n0\nrw\nrw'
makeSession ro $'jim\n0\nro\nro'
# The program logs everything, and the log is nearly full: it is rotated during the test.
printf '7\0\0\0' >"$files/devmgr_log_level"
{ yes 'a line of another program' || true; } | head -c $((0x100000 - 20000)) >"$files/zt731.log"
echo >>"$files/zt731.log"
startSwitch switch "$build"
"$build/vswitch" fault rpcclt_openapiVlanVIDListGet code=0 "vidList=$(seq -s, 1 500)" numOfElements=500
"$build/vswitch" fault rpcclt_openapiVlanCreate code=0 delay=20 || exit 1 # other requests must not wait for it
"$build/vswitch" fault rpcclt_openapiFdbFlush hangup
"$build/vswitch" fault rpcclt_openapiDot1dBaseTypeGet delay=60000

startWebServer "$build" "$(anyPorts)" "$preload"

failed=0
attend python3 "$root/tests/outside/load_test.py" "$port" "$seconds" "$files" "$build/switching_v2.cgi" \
    "$OPENCLT_SOCKET" || failed=$?
[ $failed = 0 ] || tail -n 20 "$run"/*.log
exit $failed
