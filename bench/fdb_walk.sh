#!/bin/bash
# fdb_walk.sh BUILD [STATIONS [VLANS]] - reads a forwarding database (16384 stations in 4 VLANs) from the first entry to
# the last, one request for each entry. Fails when an entry is missing or repeated. Prints what a request takes at the
# start, in the middle and at the end of the table: wall time (with the start of the program and this script's work),
# and the virtual switch's CPU time. Takes one or two minutes. It leaves nothing behind: no process, no session.
. "$(dirname "$0")/../tools/script.sh"
. "$root/tools/servers.sh"
builtIn "${1-}" switching_v2.cgi vswitch
stations=${2-16384}
vlans=${3-4}
number STATIONS "$stations" 1 1000000
number VLANS "$vlans" 1 4094
timed=200 # requests

scratch
filesOf "$build"
[ "$files" = /tmp ] || fail "the program's files in /tmp belong to another user: remove them, or run this as their owner"
makeSession
export HTTP_SESSION=$token
startSwitch vswitch.sock "$build" --stations "$stations" --station-vlans "$vlans"

# get ENDPOINT QUERY: sets answer.
get()
{
    export REQUEST_METHOD=GET REQUEST_URI=/api/v2/switching/fdb/$1 QUERY_STRING=$2
    answer=$("$build/switching_v2.cgi" </dev/null)
}
# member KEY: sets value to the member of the last answer, without quotes; fails when there is none.
member()
{
    [[ $answer =~ \"$1\":$'\t'\"?([^$'\n',\"]*) ]] && value=${BASH_REMATCH[1]}
}

# The stations are learned only at the start: they must not age out during a slow walk.
body='{"timeOut": 1000000}'
REQUEST_METHOD=PUT REQUEST_URI=/api/v2/switching/fdb/addr-aging-timeout CONTENT_LENGTH=${#body} \
    "$build/switching_v2.cgi" <<<"$body" >/dev/null
get active-addr-entries ''
member entriesNum || fail "the program does not answer: $answer"
entries=$value

# recordTimes INDEX: stores the time, and the CPU time of the switch in nanoseconds.
recordTimes()
{
    local spent=
    read -r spent _ <"/proc/${pids[-1]}/schedstat" || true
    times[$1]=$EPOCHREALTIME spents[$1]=$spent
}

# The entries go to a file: a script that grows takes longer to start a program.
middle=$(((entries - timed) / 2)) last=$((entries - timed))
times=() spents=() mac='' port=0 steps=0
recordTimes 0
while get entry-next "vlanId=0&mac=$mac&fdbIfNum=$port" && member mac; do
    mac=$value
    member fdbIfNum
    port=$value
    echo "$mac $port" >&3
    steps=$((steps + 1))
    case $steps in
        "$timed" | "$middle" | $((middle + timed)) | "$last" | "$entries") recordTimes $steps ;;
    esac
    [ $steps -le $((2 * entries)) ] || fail "the walk does not end"
done 3>"$run/seen"
member respCode
[ "$value" = 10000 ] || fail "the walk ended with $value: $answer"
distinct=$(sort -u "$run/seen" | wc -l)
echo "$entries entries in the table, $steps seen, $distinct of them different"

# between FROM NAME: prints what the requests from number FROM took.
between()
{
    awk -v name="$2" -v from="${times[$1]}" -v to="${times[$1 + timed]}" -v spent="${spents[$1]}" \
        -v spentTo="${spents[$1 + timed]}" -v steps="$timed" \
        'BEGIN { printf "%-8s %.2f ms a request, %.0f us of it in the switch\n", name ":", (to - from) * 1000 / steps,
                 (spentTo - spent) / 1000 / steps }'
}
if [ "$entries" -gt "$timed" ]; then
    between 0 start
    between "$middle" middle
    between "$last" end
fi
[ $steps = "$entries" ] && [ "$distinct" = "$entries" ]
