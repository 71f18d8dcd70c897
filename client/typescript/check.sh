#!/bin/bash
# check.sh - checks that openapi.json works with a client developer's tools: two linters (Redocly, Spectral); types, with
# which example.ts is compiled; a client (orval), which is compiled. Then it runs the example with the virtual switch.
# Installs what is missing, the npm packages of package-lock.json included. Takes some two minutes; its files are in
# build/ and build-client/.
. "$(dirname "$0")/../../tools/script.sh"
. "$root/tools/packages.sh"
. "$root/tools/servers.sh"
[ $# = 0 ] || wrong "it takes no arguments"

need g++ cmake make libcjson-dev lighttpd curl
command -v npm >/dev/null || need npm
compile "$root/build" "switching_v2.cgi vswitch sandbox" -DBUILD_TESTING=OFF
client=$root/build-client
mkdir -p "$client"
cp "$root"/client/typescript/*.{json,yaml,ts} "$client"
cd "$client"
attend npm ci --no-audit --no-fund --ignore-scripts --loglevel=error
PATH=$(echo "$client"/node_modules/node-linux-*/bin):$client/node_modules/.bin:$PATH # of Node.js as well

redocly lint --config redocly.yaml --max-problems 20 "$root/api/openapi.json"
spectral lint --ruleset spectral.yaml --fail-severity warn --quiet "$root/api/openapi.json"
openapi-typescript "$root/api/openapi.json" -o switching.d.ts
orval --input "$root/api/openapi.json" --output orval/switching.ts --client fetch
attend tsc -p .

scratch
filesOf "$root/build" private
makeSession
startSwitch switch "$root/build"
startWebServer "$root/build" "$(anyPorts)" "$preload"
SWITCHING_SESSION=$token attend node compiled/example.js "http://127.0.0.1:$port/api/v2/switching" | tee "$run/printed"
diff - "$run/printed" <<'END'
once more: Object exist
VLANs: 1 30
sources of 02:00:00:00:0A:01: 5
END
echo "check.sh: the description is clean, and its client works"
