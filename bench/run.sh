#!/bin/bash
# run.sh - installs what is missing, builds, and measures what a request costs, next to the floor (floor.c: the same
# calls to the platform and a ready-made answer) and to the same request as a Python and a Node script. Prints one
# Markdown table with the aims. Takes a minute or two besides the build, at most three on a busy machine, --quick half
# of one; nothing is left behind: no process, no session.
#
#   --quick   fewer rounds; no instructions of the scripts
. "$(dirname "$0")/../tools/script.sh"
. "$root/tools/packages.sh"
. "$root/tools/servers.sh"
cd "$root"

rounds=150 seconds=90 webRounds=20 scriptInstructions=yes
case $#-${1-} in
    0-) ;;
    1---quick) rounds=30 seconds=30 webRounds=3 scriptInstructions=no ;;
    *) wrong "it takes --quick or nothing" ;;
esac

need g++ cmake make libcjson-dev lighttpd curl valgrind wrk python3 nodejs
build=$PWD/build-bench
# Without a run path, like the program on a switch: one of a build tree costs a good twenty calls of the system.
compile "$build" all -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF -DCMAKE_SKIP_RPATH=ON
warnings=(-Wall -Wextra -Wshadow -Wconversion -Wformat=2)
cc -O2 "${warnings[@]}" bench/measure.c -o "$build/measure"
# Compiled and linked as the program is.
cc -O2 -fPIE -pie "${warnings[@]}" -Iplatform/include bench/floor.c -o "$build/floor" -Wl,-z,lazy -Wl,-z,relro \
    -L"$build/lib" -lopenclt -lproc_libs -lcjson

# The program is measured as it is, with its own files where they lie on a switch.
scratch
filesOf "$build"
[ "$files" = /tmp ] || fail "the program's files in /tmp belong to somebody else: remove them, or run this as their owner"
makeSession

# A switch for each length of list. The list operations are answered by faults: no switch has 4,096 VLANs to list.
# All ids have four digits, so that twice the ids are twice the text.
lengths=(1024 2048 4096)
declare -A ids
for length in "${lengths[@]}"; do
    ids[$length]=$(seq 0 $((length - 1)) | awk '{ printf "%s%d", (NR > 1 ? "," : ""), 1000 + $1 % 3000 }')
    printf '{"intf":1,"vidList":[%s]}' "${ids[$length]}" >"$run/body$length"
    startSwitch switch$length "$build"
    list=rpcclt_openapiDot1qSwPortTrunkAllowedVlanList
    "$build/vswitch" fault ${list}Get code=0 "vidList=${ids[$length]}" || fail "$(cat "$run/vswitch.log")"
    "$build/vswitch" fault ${list}Set code=0
done

# The distribution's own interpreters, not a version manager's wrapper.
python=/usr/bin/python3
node=/usr/bin/node

names=(floor floorAgain plain read1024 read2048 read4096 write1024 write2048 write4096 python node)

listPath=vlan/dot1q-sw-port-trunk-allowed-vlan-list
success='"resp":{"respCode":0,"respMsg":"Success","status":"success"}'

# Sets words (the environment and the command), input, and the answer that is expected, without white space.
requestOf()
{
    local length=${1//[!0-9]/} method=GET path=bridge/dot1d-stp-priority query="" data='"bridge":{"priority":32768},'
    local command=("$build/switching_v2.cgi")
    input=/dev/null
    case $1 in
        floor*) command=("$build/floor") ;;
        python) command=($python bench/reader.py) ;;
        node) command=($node bench/reader.js) ;;
        read*) path=$listPath query=intf=1 data="\"vlan\":{\"vidList\":[${ids[$length]}]}," ;;
        write*) path=$listPath method=PUT input=$run/body$length data="" ;;
    esac
    words=(PATH=/usr/bin:/bin "OPENCLT_SOCKET=$run/switch${length:-4096}" "HTTP_SESSION=$token" REQUEST_METHOD=$method
           "REQUEST_URI=/api/v2/switching/$path${query:+?$query}" "QUERY_STRING=$query"
           "CONTENT_LENGTH=$(stat -c %s "$input")" "LD_LIBRARY_PATH=$build/lib" "${command[@]}")
    expected="Content-Type:application/json{$data$success}"
}

# Nothing is measured that does not answer as it should.
for name in "${names[@]}"; do
    requestOf $name
    answer=$(env -i "${words[@]}" <"$input" | tr -d ' \t\r\n')
    [ "$answer" = "$expected" ] || fail "$name answers ${answer:0:300}"
done

# Lines of results: what was measured, of what, value.
results=$run/results
load=$(cut -d' ' -f1 /proc/loadavg)

echo "Measuring times" >&2
cases=()
for name in "${names[@]}"; do
    requestOf $name
    cases+=(-- $name "<$input" "${words[@]}")
done
attend "$build/measure" $rounds $seconds "${cases[@]}" >"$run/times"
awk '{ print "cpu", $1, $2; print "wall", $1, $3 }' "$run/times" >>"$results"

echo "Counting instructions" >&2
for name in "${names[@]}"; do
    case $name-$scriptInstructions in floorAgain-* | python-no | node-no) continue ;; esac
    requestOf $name
    if ! attend timeout 60 env -i "${words[@]::8}" valgrind --tool=callgrind \
        --callgrind-out-file="$run/$name.callgrind" "${words[@]:8}" <"$input" >/dev/null 2>"$run/valgrind.log"; then
        case $name in python | node) continue ;; esac # too long for a minute: no count
        fail "$name under callgrind: $(cat "$run/valgrind.log")"
    fi
    awk -v name=$name '/Collected *:/ { print "instructions", name, $NF }' "$run/valgrind.log" >>"$results"
done
callgrind_annotate --inclusive=yes --threshold=100 "$run/plain.callgrind" >"$run/plain.annotated"
awk '/:registerEndpoints\(/ { gsub(",", "", $1); print "instructions registerEndpoints", $1; exit }' \
    "$run/plain.annotated" >>"$results"
grep -q '^instructions registerEndpoints' "$results" || fail "callgrind knows no registerEndpoints"

echo "Measuring rates" >&2
# The floor lies behind a path like the program's, so that the web server's own work is the same.
startWebServer "$build" "$(anyPorts)" "\"LD_LIBRARY_PATH\" => \"$build/lib\"" "
alias.url += (\"/api/v2/floor/\" => \"$build/floor/\")
\$HTTP[\"url\"] =~ \"^/api/v2/floor(/|\$)\" { cgi.assign = (\"floor\" => \"\") }"
base=http://127.0.0.1:$port
session="Session: $token"
declare -A url=([floor]=$base/api/v2/floor/bridge/dot1d-stp-priority
                 [plain]=$base/api/v2/switching/bridge/dot1d-stp-priority)
requestOf plain
for name in floor plain; do
    answer=$(curl -s -D - -o "$run/answer" -H "$session" "${url[$name]}")
    [ "$(tr -d ' \t\r\n' <"$run/answer")" = "${expected#*json}" ] || fail "$name answers $answer"
done
for ((round = 0; round < webRounds; round++)); do
    for name in floor plain; do
        attend wrk -t 1 -c 4 -d 1s -H "$session" "${url[$name]}" >"$run/wrk"
        ! grep -E 'Non-2xx|Socket errors' "$run/wrk" >&2 || fail "$name was not answered"
        awk '/Requests\/sec/ { print $2 }' "$run/wrk" >>"$run/rates.$name"
    done
done
for name in floor plain; do
    sort -n "$run/rates.$name" |
        awk -v name=$name '{ v[NR] = $1 } END { print "rate", name, v[int((NR + 1) / 2)] }' >>"$results"
done
# Both of a round meet the same mood of the machine: the ratio is the median of the rounds' own.
paste "$run/rates.plain" "$run/rates.floor" | awk '{ print $1 / $2 }' | sort -n |
    awk '{ v[NR] = $1 } END { print "rateRatio", "plain", v[int((NR + 1) / 2)] }' >>"$results"

load+=", at the end $(cut -d' ' -f1 /proc/loadavg)"
awk -v rounds="$(awk '{ print $4; exit }' "$run/times")" -v webRounds=$webRounds -v load="$load" '
    { value[$1, $2] = $3 }

    function cells(measured, name, of, unit, format) {
        if (!((measured, name) in value))
            return measured == "instructions" && name ~ /^(python|node)$/ ? " n/a | |" : " | |"
        return sprintf(" " format " | %.2f |", value[measured, name] / unit,
                       measured == "rate" && name == "plain" ? rate : ratio(measured, name, of))
    }
    function row(title, name, aim) {
        printf "| %s |%s%s%s%s %s |\n", title, cells("cpu", name, "floor", 1, "%d"),
            cells("wall", name, "floor", 1, "%d"), cells("instructions", name, "floor", 1000, "%d"),
            cells("rate", name, "floor", 1, "%d"), aim
    }
    # A ratio to as many digits as are printed, and judged.
    function ratio(measured, a, b) { return sprintf("%.2f", value[measured, a] / value[measured, b]) + 0 }
    function verdict(what, measured, limit, met) {
        return sprintf("%s %.2f, aim %s: %s", what, measured, limit, met ? "met" : "**missed**")
    }
    # From 2,048 to 4,096 ids against from 1,024 to 2,048: 2 when the cost is linear, 4 when it grows with the square.
    function step(measured, name, from, to) { return value[measured, name to] - value[measured, name from] }
    function growth(measured, name) { return step(measured, name, 2048, 4096) / step(measured, name, 1024, 2048) }
    function linear(name,   g) {
        g = growth("instructions", name)
        return sprintf("%s (CPU %.2f)", verdict("growth", g, "≤ 2.1 (linear)", g <= 2.1), growth("cpu", name))
    }

    END {
        print "| Request | CPU, µs | × floor | Wall, µs | × floor | Instructions, 1000 | × floor " \
              "| Requests/s | × floor | Aim |"
        print "|---|---:|---:|---:|---:|---:|---:|---:|---:|---|"
        rate = sprintf("%.2f", value["rateRatio", "plain"]) + 0
        row("Floor", "floor", "")
        cpu = ratio("cpu", "plain", "floor")
        instructions = ratio("instructions", "plain", "floor")
        share = ratio("instructions", "registerEndpoints", "plain")
        row("Plain reader", "plain", verdict("CPU", cpu, "≤ 1.2", cpu <= 1.2) "; " \
            verdict("instructions", instructions, "≤ 2", instructions <= 2) "; " \
            verdict("rate", rate, "≥ 0.9", rate >= 0.9))
        row("of it, registerEndpoints", "registerEndpoints", verdict("share", share, "≤ 0.20", share <= 0.2))
        split("read write", kinds, " ")
        split("1024 2048 4096", lengths, " ")
        for (k = 1; k <= 2; k++)
            for (l = 1; l <= 3; l++)
                row("List " kinds[k] ", " lengths[l] " ids", kinds[k] lengths[l], l == 3 ? linear(kinds[k]) : "")
        row("Plain reader, Python", "python", "")
        row("Plain reader, Node", "node", "")
        printf "\nFloor: the plain reader\047s calls to the platform and a ready-made answer. "
        printf "Medians of %d rounds; ", rounds
        printf "rates with 4 connections, of %d times 1 s, their ratio the median of the rounds\047 ratios. Load at the start %s. ", webRounds, load
        printf "The floor against itself: CPU %.2f, wall %.2f; differences of that size are noise. ",
            ratio("cpu", "floorAgain", "floor"), ratio("wall", "floorAgain", "floor")
        print "Growth: what the second 2,048 ids cost over what the second 1,024 cost. Wall includes the switch."
    }' "$results"
