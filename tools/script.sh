# script.sh - sourced first by every script: --help, words that are checked, an end that nothing interrupts, processes
# and files that are gone then, and the build. Sets root, the project's directory.
#
# The comment at a script's head is its help.

set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)

for word; do
    case $word in
        --help | -h)
            awk 'NR > 1 { if (!sub(/^# ?/, "")) exit; print }' "$0"
            exit 0 ;;
    esac
done
unset word

# Ends the script for what it was given, or for what it met.
wrong()
{
    echo "${0##*/}: $* (--help says what it takes)" >&2
    exit 2
}
fail()
{
    echo "${0##*/}: $*" >&2
    exit 1
}

# number NAME TEXT LOWEST HIGHEST: ends the script unless TEXT is such a number.
number()
{
    [[ $2 =~ ^[0-9]{1,9}$ ]] && ((10#$2 >= $3 && 10#$2 <= $4)) ||
        wrong "$1 takes a number from $3 to $4, not \"$2\""
}

# builtIn DIRECTORY FILE...: ends the script unless these were built there; sets build to its full path.
builtIn()
{
    local file
    [ -d "$1" ] || wrong "there is no directory \"$1\": BUILD is one in which the project was built"
    build=$(cd "$1" && pwd -P)
    for file in "${@:2}"; do
        [ -e "$build/$file" ] || wrong "there is no $file in $1: BUILD is build-test after ./test.sh"
    done
}

# The end

endings=()
pids=()

# atEnd COMMAND [WORD...]: runs this when the script ends, by whatever but SIGKILL; what was said last runs first.
atEnd()
{
    endings+=("$(printf '%q ' "$@")")
}

# However often it is called, and wherever it is when a signal calls it again: what is to be done is done.
finish()
{
    trap '' INT QUIT TERM HUP PIPE
    stopProcesses
    local i
    for ((i = ${#endings[@]} - 1; i >= 0; i--)); do eval "${endings[i]}" || true; done
    trap - EXIT
    exit "$1"
}
trap 'finish $?' EXIT
trap 'finish 129' HUP
trap 'finish 130' INT
trap 'finish 131' QUIT
trap 'finish 141' PIPE
trap 'finish 143' TERM

# A directory of the script's own, which goes when it ends: run. (Its name is known before it is there. Sockets lie in
# it, whose paths are short, and a library to be preloaded, whose path is without spaces.)
scratch()
{
    run=${TMPDIR:-/tmp}
    [[ $run =~ ^[^[:space:]:]{1,40}$ ]] || run=/tmp
    run+=/switching-$SRANDOM
    atEnd rm -rf "$run"
    mkdir -m 700 "$run"
}

# Processes

# launch COMMAND...: in the background, the last of pids; what it starts ends with it, and both with the script.
launch()
{
    setsid "$@" <&0 &
    pids+=($!)
}

# attend COMMAND...: until it ends; a signal to the script ends both.
attend()
{
    local status=0
    launch "$@"
    wait $! || status=$?
    unset 'pids[-1]'
    return $status
}

# The latest ends first; what is still there after five seconds is killed. They are asked for by their jobs: a signal can
# come between a process' start and the note of it.
stopProcesses()
{
    local running i try signal
    # shellcheck disable=SC2207 # numbers
    running=($(jobs -p))
    for ((i = ${#running[@]} - 1; i >= 0; i--)); do
        for ((try = 0; try < 120; try++)); do
            signal=0
            [ $try != 0 ] || signal=TERM
            [ $try != 100 ] || signal=KILL
            kill -$signal -- "-${running[i]}" 2>/dev/null || kill -$signal "${running[i]}" 2>/dev/null || break
            sleep 0.05
        done
        wait "${running[i]}" 2>/dev/null || true
    done
    pids=()
}

# The build

# compile DIRECTORY TARGETS [CMAKE-OPTION...]: says something only when something is wrong.
compile()
{
    local directory=$1 targets
    read -ra targets <<<"$2"
    [ ! -e "$directory" ] || [ -w "$directory" ] ||
        fail "$directory belongs to $(stat -c %U "$directory"): remove it, or run this as its owner"
    mkdir -p "$directory"
    {
        attend cmake -S "$root" -B "$directory" "${@:3}" >"$directory/build.log" 2>&1 &&
            attend cmake --build "$directory" -j "$(nproc)" --target "${targets[@]}" >>"$directory/build.log" 2>&1
    } || {
        cat "$directory/build.log" >&2
        fail "the build failed: see above"
    }
}

# The program's files: /tmp as the program sees it, and a session

# filesOf BUILD [own]: sets files, the directory that is /tmp to the program, and preload, the program's environment as
# lighttpd writes it. It is /tmp unless what lies there belongs to somebody else; that, or "own": one of the script's.
filesOf()
{
    local file
    files=/tmp
    preload=
    [ "${2-}" != own ] || files=$run/tmp
    for file in /tmp/session /tmp/zt731.log /tmp/zt731.log.old /tmp/devmgr_log_level; do
        if [ -L $file ] || { [ -e $file ] && [ ! -O $file ]; }; then files=$run/tmp; fi
    done
    [ $files != /tmp ] || return 0
    mkdir -p "$files"
    # By a path without a space: the loader takes several there.
    ln -s "$(cd "$1" && pwd -P)/lib/libsandbox.so" "$run/libsandbox.so"
    preload="\"SANDBOX_TMP\" => \"$files\", \"LD_PRELOAD\" => \"$run/libsandbox.so\",
        \"ASAN_OPTIONS\" => \"verify_asan_link_order=0\""
}

newToken()
{
    od -An -N16 -tx1 /dev/urandom | tr -d ' \n'
}

# makeSession NAME CONTENT: what the web login would leave, until the script ends; without NAME an administrator's,
# whose name is token. The names are what a client proves itself with: nobody else may list them.
makeSession()
{
    if [ $# = 0 ]; then
        token=$(newToken)
        set -- "$token" $'admin\n0\n'"$token"
    fi
    if mkdir -m 700 "$files/session" 2>/dev/null; then atEnd rmdir --ignore-fail-on-non-empty "$files/session"; fi
    atEnd rm -f "$files/session/$1"
    (umask 077; printf '%s' "$2" >"$files/session/$1")
}

# makeSessions: the administrator's, token, and those of two other users: writer may read and write, reader only read.
makeSessions()
{
    makeSession
    writer=$(newToken)
    makeSession "$writer" $'writer\n0\nrw\n'"$writer"
    reader=$(newToken)
    makeSession "$reader" $'reader\n0\nro\n'"$reader"
}
