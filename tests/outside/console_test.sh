#!/bin/bash
# console_test.sh [--shots DIR] - plays a person in front of the console, in a headless Chromium: some minute, once the
# browser is installed (400 MB). With --shots its two screenshots are left in DIR.
#
# Where npm is, accessibility is checked by axe-core as well, which is installed for this run alone.
. "$(dirname "$0")/../../tools/script.sh"
. "$root/tools/packages.sh"
. "$root/tools/servers.sh"
shots=
case ${1-} in
    '') ;;
    --shots) [ -d "${2-}" ] || wrong "--shots takes a directory that is there"; shots=$(cd "$2" && pwd -P) ;;
    *) wrong "there is no option \"$1\"" ;;
esac

need g++ cmake make libcjson-dev lighttpd curl chromium chromium-driver python3-selenium
build=$root/build
compile "$build" "switching_v2.cgi vswitch sandbox" -DBUILD_TESTING=OFF
scratch
filesOf "$build" own
makeSessions
startSwitch switch "$build" --trace "$run/trace"
startWebServer "$build" "$(anyPorts)" "$preload" "$(consoleFor "$build" "$token" "$writer" "$reader")"
if command -v npm >/dev/null; then
    (cd "$run" && attend npm install --no-save --no-fund --no-audit --loglevel=error axe-core@4.10.3 >&2)
    export AXE=$run/node_modules/axe-core/axe.min.js
else
    echo "skipped: accessibility (there is no npm)"
fi
attend /usr/bin/python3 "$root/tests/outside/console_test.py" "http://127.0.0.1:$port/console/" "$build" "$run/lighttpd.conf" \
    "${pids[-1]}" "$files/session" "$token" "$reader" "${shots:-$run}"
