#!/bin/bash
# web_server_test.sh BUILD - the program behind lighttpd, asked with curl. Prints what differs and fails.
. "$(dirname "$0")/../tools/script.sh"
. "$root/tools/servers.sh"
builtIn "${1-}" switching_v2.cgi vswitch lib/libsandbox.so
scratch
filesOf "$build" own
makeSession token $'admin\n0\ntoken'
startSwitch switch "$build"
startWebServer "$build" "$(anyPorts)" "$preload"

failed=0
# expect STATUS TYPE BODY CURL_WORDS... : the last word is the path below the interface's
expect()
{
    local status=$1 type=$2 body=$3 path=${*: -1} got
    shift 3
    got=$(curl -s -g -w '\n%{http_code} %{content_type}' --max-time 30 "${@:1:$#-1}" \
          "http://127.0.0.1:$port/api/v2/switching/$path")
    if [ "$got" != "$body"$'\n'"$status $type" ]; then
        failed=1
        echo "--- $*"
        echo "expected: $body"$'\n'"$status $type"
        echo "got:      $got"
    fi
}
resp='	"resp":	{
		"respCode":	0,
		"respMsg":	"Success",
		"status":	"success"
	}
}'
session='Session: token'
expect 200 application/json $'{\n\t"bridge":\t{\n\t\t"agingTime":\t300\n\t},\n'"$resp" -H "$session" bridge/db-dot1d-tp-aging-time
expect 200 application/json $'{\n'"$resp"$'\n' -H "$session" -X PUT -d '{"agingTime": 400}' bridge/db-dot1d-tp-aging-time
expect 200 application/json $'{\n\t"bridge":\t{\n\t\t"agingTime":\t400\n\t},\n'"$resp" -H "$session" bridge/db-dot1d-tp-aging-time
expect 200 application/json $'{\n'"$resp"$'\n' -H "$session" -d '' 'bridge/dot1d-is-valid-intf?intIfNum=3'
# the query reaches the program as it was sent
expect 200 application/json $'{\n\t"bridge":\t{\n\t\t"address":\t"{\\"%41+",\n\t\t"exists":\tfalse\n\t},\n'"$resp" \
    -H "$session" 'bridge/dot1d-tp-fdb-entry?address={"%41+'
expect 403 '' '' bridge/db-dot1d-tp-aging-time
expect 403 '' '' -H 'Session: ../zt731.log' bridge/db-dot1d-tp-aging-time
grep -q '403 Forbidden' "$files/zt731.log" || { echo "no log line of the refusal"; failed=1; }
[ "$(sed -n 1p "$files/session/token")" = admin ] || { echo "the session file is damaged"; failed=1; }
# an unknown endpoint is no output at all, of which the web server makes an error of its own
status=$(curl -s -o /dev/null -w '%{http_code}' -H "$session" "http://127.0.0.1:$port/api/v2/switching/bridge/no-such-endpoint")
[ "$status" = 500 ] || { echo "an unknown endpoint answers $status"; failed=1; }
[ $failed = 0 ] || cat "$run"/*.log
exit $failed
