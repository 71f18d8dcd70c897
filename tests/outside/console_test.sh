#!/bin/bash
# console_test.sh [--shots DIR] - uses the console as a person would, in a headless Chromium. Takes about a minute, once
# the browser is installed (400 MB). With --shots it leaves two screenshots in DIR.
#
# If npm is there, axe-core checks accessibility as well; it is installed for this run alone.
. "$(dirname "$0")/../../tools/script.sh"
. "$root/tools/packages.sh"
. "$root/tools/servers.sh"
shots=
case ${1-} in
    '') ;;
    --shots) [ -d "${2-}" ] || wrong "--shots takes an existing directory"; shots=$(cd "$2" && pwd -P) ;;
    *) wrong "there is no option \"$1\"" ;;
esac

need g++ cmake make libcjson-dev lighttpd curl chromium chromium-driver python3-selenium
build=$root/build
compile "$build" "switching_v2.cgi vswitch sandbox" -DBUILD_TESTING=OFF
scratch
filesOf "$build" private
makeSessions
startSwitch switch "$build" --trace "$run/trace"
startWebServer "$build" "$(anyPorts)" "$preload" "$(consoleFor "$build" "$token" "$writer" "$reader")"
if command -v npm >/dev/null; then
    (cd "$run" && attend npm install --no-save --no-fund --no-audit --loglevel=error axe-core@4.10.3 >&2)
    export AXE=$run/node_modules/axe-core/axe.min.js
else
    echo "skipped: accessibility (there is no npm)"
fi
TOKEN=$token READER=$reader attend /usr/bin/python3 "$root/tests/outside/console_test.py" "http://127.0.0.1:$port/console/" "$build" "$run/lighttpd.conf" \
    "${pids[-1]}" "$files/session" "${shots:-$run}"
