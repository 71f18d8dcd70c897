#!/bin/bash
# scripts_test.sh BUILD - tests the scripts: --help, wrong arguments, and that nothing is left when a signal ends one.
. "$(dirname "$0")/../../tools/script.sh"
builtIn "${1-}" switching_v2.cgi vswitch lib/libsandbox.so
cd "$root"
unset TMPDIR # serve.sh would not use a directory with a long path
scratch
export TMPDIR=$run
bad=0
complain() { head -c 1000 <<<"$*"; bad=1; }

# Every script that can be started (command.sh is a CGI program): --help, and a directory that is no build, or too many arguments. Modules that may be
# missing are missing: -S hides Debian's packages.
mapfile -t scripts < <(find . -name 'build*' -prune -o -name node_modules -prune -o -name command.sh -o -name '*.[sp][hy]' -perm -100 -printf '%P\n' | sort)
[ ${#scripts[@]} -gt 20 ] || complain "only ${#scripts[@]} scripts are found"
command_of() { case $1 in *.py) echo "python3 -S ./$1" ;; *) echo "./$1" ;; esac; }
for script in "${scripts[@]}"; do
    # shellcheck disable=SC2046
    timeout 20 $(command_of "$script") --help >"$run/out" 2>"$run/err" </dev/null || complain "$script --help: status $?"
    grep -Eq "^(usage: )?${script##*/}" "$run/out" && [ ! -s "$run/err" ] || complain "$script --help: $(cat "$run/out" "$run/err")"
done
for script in "${scripts[@]}"; do
    case $script in *.py) ;; *) continue ;; esac
    status=0
    timeout 20 python3 -S "./$script" "$run" "$run/no" "$run/no" >"$run/out" 2>"$run/err" </dev/null || status=$?
    [ $status = 2 ] && ! grep -q Traceback "$run/err" || complain "$script with wrong arguments: status $status, $(cat "$run/out" "$run/err")"
done
for script in tests/proof/proof.py tests/sharpness.py; do
    ! timeout 20 python3 -S "./$script" "$build" >"$run/out" 2>"$run/err" </dev/null && grep -q 'python3-jsonschema' "$run/err" &&
        [ "$(wc -l <"$run/err")" = 1 ] || complain "$script without its module: $(cat "$run/out" "$run/err")"
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
# After SIGKILL, the next start ends and removes what was left.
mkdir "$run/tmp"
serve() { rm -f "$run/out"; TMPDIR=$run/tmp launch ./serve.sh --own-files --build "$build" --port "$port" >"$run/out" 2>&1; }
serves() { for ((try = 0; try < 400; try++)); do ! grep -sq Ctrl-C "$run/out" || return 0; sleep 0.05; done; return 1; }
serve && serves && kill -KILL "${pids[-1]}" && serve
serves && grep -q 'serve.sh .* was killed' "$run/out" || complain "after SIGKILL, serve.sh does not serve: $(cat "$run/out")"
alone() { for ((try = 0; try < 100; try++)); do [ "$(pgrep -cf "$run/tmp.*lighttpd.conf")" != 1 ] || return 0; sleep 0.05; done; return 1; }
alone || complain "after SIGKILL, not one web server is there: $(pgrep -af "$run/tmp")" # a child of it counts until its exec
kill "${pids[-1]}"
wait "${pids[-1]}" || true
[ ! "$(ls -A "$run/tmp")" ] || complain "after SIGKILL and a new start, there is left $(find "$run/tmp")"
rm -rf "$run/tmp"

# install.sh waits for another apt.
if [ "$(id -u)" = 0 ]; then
    mkdir "$run/apt"
    printf '#!/bin/sh\necho "$1" >>%q/calls\n[ "$(wc -l <%q/calls)" -gt 3 ] || { echo "E: Could not get lock /x"; exit 100; }\n' \
        "$run/apt" "$run/apt" >"$run/apt/apt-get"
    printf '#!/bin/sh\n' >"$run/apt/sleep"
    chmod 755 "$run"/apt/*
    PATH=$run/apt:$PATH timeout 60 tools/install.sh none >"$run/out" 2>&1 || complain "install.sh: $(cat "$run/out")"
    [ "$(xargs <"$run/apt/calls")" = "update update update update install" ] || complain "install.sh: $(cat "$run/apt/calls" "$run/out")"
fi

# What other users of the machine must not get at: the token in a command's arguments, and the trace without a session.
given=$(grep -nP '(?<!\\)\$\{?(token|writer|reader|session)\b' "${scripts[@]/*.py//dev/null}" tools/*.sh | grep -vP ':\d+: *(\(umask 077; )?(echo|printf|set --|makeSession|startWebServer|"\$\(consoleFor|"\$port" |\\\$ curl|The switch|  as a|  session=|[A-Z_]+=\$token\b(?!.*\$token\b)|export [A-Z_]+=\$token\b)') || true
[ ! "$given" ] || complain "a command may get a token as an argument: $given"
mkdir "$run/tmp"
serve && serves || complain "serve.sh does not serve: $(cat "$run/out")"
sed -n "s/^  session='\(.*\)'/\1/p" "$run/out" >"$run/header"
for path in trace trace/ trace/x trace%2fx trace/.; do
    status=$(curl -s -o "$run/body" -w '%{http_code}' --path-as-is "http://127.0.0.1:$port/console/$path")
    [ "$status" = 403 ] || complain "/console/$path without a session: status $status, $(head -c 80 "$run/body")"
done
[ "$(curl -s -o "$run/body" -w '%{http_code}' -H "@$run/header" "http://127.0.0.1:$port/console/trace")" = 200 ] ||
    complain "/console/trace with a session: $(head -c 80 "$run/body")"
stopProcesses

# A directory for sessions that appears between the check and its making.
mkdir "$run/elsewhere"
ln -s "$run/elsewhere" "$run/tmp/session"
! (files=$run/tmp; endings=(); makeSession) 2>/dev/null || complain "a session is made behind a link"
[ ! "$(ls -A "$run/elsewhere")" ] || complain "a session is written behind a link"
exit $bad
