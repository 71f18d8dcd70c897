#!/bin/bash
# scripts_test.sh BUILD - tests the scripts: --help, wrong arguments, and that nothing is left when a signal ends one.
. "$(dirname "$0")/../../tools/script.sh"
builtIn "${1-}" switching_v2.cgi vswitch lib/libsandbox.so
cd "$root"
scratch
export TMPDIR=$run
bad=0
complain() { echo "$*"; bad=1; }

for script in serve.sh test.sh bench/*.sh deploy/[cp]*.sh tests/outside/*_test.sh tests/fuzz/run.sh tools/tidy.sh tools/install.sh; do
    timeout 20 "./$script" --help >"$run/out" 2>"$run/err" </dev/null || complain "$script --help: status $?"
    grep -q "^${script##*/}" "$run/out" && [ ! -s "$run/err" ] || complain "$script --help: $(cat "$run/out" "$run/err")"
done

while read -r script arguments; do
    # shellcheck disable=SC2086
    timeout 20 "./$script" $arguments >"$run/out" 2>"$run/err" </dev/null && complain "$script $arguments is no error"
    [ $? = 2 ] && [ "$(wc -l <"$run/err")" = 1 ] && [ ! -s "$run/out" ] || complain "$script $arguments: $(cat "$run/out" "$run/err")"
done <<END
serve.sh --port 70000
serve.sh --port
serve.sh --ports x
serve.sh --what 1
serve.sh --build $run
test.sh fast
bench/run.sh 10
bench/fdb_walk.sh
bench/fdb_walk.sh $build many
deploy/cross.sh tests
deploy/cross.sh --libraries
tests/outside/load_test.sh
tests/outside/load_test.sh $build x
tests/fuzz/run.sh -1
tools/tidy.sh nowhere
tools/install.sh
END

# Signals at different moments: while the script starts, while it serves, and repeatedly while it cleans up. (Not SIGINT,
# which a shell's background process ignores.)
port=$(shuf -i 20000-32000 -n 1)
for signals in "0.05 TERM" "0.4 HUP" "1.5 HUP TERM HUP" "3 TERM TERM TERM TERM"; do
    read -r pause first more <<<"$signals"
    mkdir "$run/tmp"
    TMPDIR=$run/tmp setsid ./serve.sh --own-files --build "$build" --port "$port" >"$run/out" 2>&1 &
    pids+=($!)
    sleep "$pause"
    for signal in $first $more; do kill "-$signal" "$!" 2>/dev/null || true; done
    for ((try = 0; try < 400; try++)); do kill -0 "$!" 2>/dev/null || break; sleep 0.05; done
    kill -0 "$!" 2>/dev/null && complain "$signals: it does not end"
    [ ! "$(ls -A "$run/tmp")" ] || complain "$signals: left $(find "$run/tmp")"
    [ ! "$(pgrep -f "$run/tmp")" ] || complain "$signals: processes are left: $(pgrep -af "$run/tmp")"
    rm -rf "$run/tmp"
done
exit $bad
