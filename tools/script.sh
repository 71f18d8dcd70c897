# script.sh - sourced first by every script: --help, checks of arguments, cleaning up at the end, and the build. Sets
# root, the project's directory.
#
# --help prints the comment at the head of the script.

set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)

for argument; do
    case $argument in
        --help | -h)
            awk 'NR > 1 { if (!sub(/^# ?/, "")) exit; print }' "$0"
            exit 0 ;;
    esac
done
unset argument

# wrong MESSAGE: ends the script because of its arguments.
wrong()
{
    echo "${0##*/}: $* (see --help)" >&2
    exit 2
}

# fail MESSAGE: ends the script because something failed.
fail()
{
    echo "${0##*/}: $*" >&2
    exit 1
}

# number NAME TEXT LOWEST HIGHEST: ends the script unless TEXT is a number in this range.
number()
{
    [[ $2 =~ ^[0-9]{1,9}$ ]] && ((10#$2 >= $3 && 10#$2 <= $4)) ||
        wrong "$1 takes a number from $3 to $4, not \"$2\""
}

# builtIn DIRECTORY FILE...: sets build to the full path of DIRECTORY; ends the script unless the files are in it.
builtIn()
{
    local file
    [ -d "$1" ] || wrong "there is no directory \"$1\": BUILD is the directory of a build"
    build=$(cd "$1" && pwd -P)
    for file in "${@:2}"; do
        [ -e "$build/$file" ] || wrong "there is no $file in $1: BUILD is build-test after ./test.sh"
    done
}

# The end

endings=()
pids=()

# atEnd COMMAND [ARGUMENT...]: runs this when the script ends for any reason but SIGKILL. The latest command runs first.
atEnd()
{
    endings+=("$(printf '%q ' "$@")")
    [ ! -d "${run-}" ] || echo "${endings[-1]}" >>"$run/endings" # for removeLeft
}

# finish STATUS: cleans up and ends the script. It ignores further signals, so it cleans up completely.
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

# scratch: makes a directory, run, which is removed when the script ends. Its path is short and without spaces, as
# sockets and a library for LD_PRELOAD lie in it.
scratch()
{
    run=$(scratchParent)/switching-$SRANDOM
    atEnd rm -rf "$run"
    mkdir -m 700 "$run"
    echo "$$ $(startOf $$) ${0##*/}" >"$run/owner"
}

scratchParent()
{
    local parent=${TMPDIR:-/tmp}
    [[ $parent =~ ^[[:alnum:]_./-]{1,40}$ ]] || parent=/tmp
    echo "$parent"
}

# startOf PROCESS: prints when it started, so that another process with the same number is not taken for it.
startOf() { sed 's/.*) //' "/proc/$1/stat" 2>/dev/null | cut -d' ' -f20; }

# removeLeft: ends and removes what scripts of this user left that were killed with SIGKILL, and says so.
removeLeft()
{
    local directory process start name command
    for directory in "$(scratchParent)"/switching-*; do
        [ -O "$directory" ] && [ ! -L "$directory" ] && read -r process start name 2>/dev/null <"$directory/owner" || continue
        [ "$(startOf "$process")" != "$start" ] || continue
        echo "$name (process $process) was killed and could not clean up. Ending what it left:" >&2
        for process in $(grep -lszFx "SWITCHING_SCRIPT=$directory" /proc/[0-9]*/environ | cut -d/ -f3); do
            echo "  process $process: $(tr '\0' ' ' <"/proc/$process/cmdline")" >&2
            kill "$process" 2>/dev/null || true
            timeout 5 tail -f -s 0.05 --pid="$process" /dev/null || kill -KILL "$process" 2>/dev/null || true
        done
        while read -r command; do
            [[ $command != ip\ * ]] || echo "  $command" >&2
            eval "$command" || true
        done < <(tac "$directory/endings" 2>/dev/null)
        rm -rf "$directory"
    done
}

# Processes

# launch COMMAND...: runs it in the background, and adds its process to pids. It ends with the script, and with it all
# processes that it has started.
launch()
{
    SWITCHING_SCRIPT=${run-} setsid "$@" <&0 & # for removeLeft
    pids+=($!)
}

# attend COMMAND...: runs it and waits until it ends. A signal to the script ends it at once.
attend()
{
    local status=0
    launch "$@"
    wait $! || status=$?
    unset 'pids[-1]'
    return $status
}

# Ends the launched processes, the latest first, and kills what still runs after five seconds. (It asks the shell for
# its jobs: a signal can come before a new process is in pids.)
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

# compile DIRECTORY TARGETS [CMAKE-OPTION...]: builds the targets; prints only errors.
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

# filesOf BUILD [private]: sets files, the directory that the program uses as /tmp, and preload, the environment for that in
# lighttpd's notation. files is /tmp, except with "private", or when the program's files in /tmp belong to another user:
# then it is in the scratch directory.
filesOf()
{
    local file
    files=/tmp
    preload=
    [ "${2-}" != private ] || files=$run/tmp
    for file in /tmp/session /tmp/zt731.log /tmp/zt731.log.old /tmp/devmgr_log_level; do
        if [ -L $file ] || { [ -e $file ] && [ ! -O $file ]; }; then files=$run/tmp; fi
    done
    [ $files != /tmp ] || return 0
    mkdir -p "$files"
    # LD_PRELOAD is split at spaces: a path without any.
    ln -s "$(cd "$1" && pwd -P)/lib/libsandbox.so" "$run/libsandbox.so"
    preload="\"SANDBOX_TMP\" => \"$files\", \"LD_PRELOAD\" => \"$run/libsandbox.so\",
        \"ASAN_OPTIONS\" => \"verify_asan_link_order=0\""
}

newToken()
{
    od -An -N16 -tx1 /dev/urandom | tr -d ' \n'
}

# makeSession [NAME CONTENT]: makes a session file like the web login's, until the script ends. Without arguments it is
# an administrator's, token its name, and $run/header its header, for curl -H. A name is a client's secret: other users
# must not list the directory, and the arguments of a command can be read by all.
makeSession()
{
    if [ $# = 0 ]; then
        token=$(newToken)
        (umask 077; echo "Session: $token" >"$run/header")
        set -- "$token" $'admin\n0\n'"$token"
    fi
    if mkdir -m 700 "$files/session" 2>/dev/null; then
        atEnd rmdir --ignore-fail-on-non-empty "$files/session"
    elif [ ! -d "$files/session" ] || [ -L "$files/session" ] || [ ! -O "$files/session" ]; then
        fail "$files/session belongs to another user, or is no directory: remove it"
    fi
    (umask 077; set -C; printf '%s' "$2" >"$files/session/$1")
    atEnd find "$files/session" -inum "$(stat -L -c %i /dev/stdin <"$files/session/$1")" -delete
}

# makeSessions: makes sessions of an administrator (token), a user who may read and write (writer), and one who may only
# read (reader).
makeSessions()
{
    makeSession
    writer=$(newToken)
    makeSession "$writer" $'writer\n0\nrw\n'"$writer"
    reader=$(newToken)
    makeSession "$reader" $'reader\n0\nro\n'"$reader"
}
