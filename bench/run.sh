#!/bin/bash
# run.sh - installs what is missing, builds, and measures what a request costs, compared with the floor (floor.c: the
# same calls to the platform and a ready-made answer). Prints a Markdown table with the aims. Takes one or two minutes
# besides the build, at most three on a busy machine. It leaves nothing behind: no process, no session.
#
#   --quick   fewer rounds: half a minute
. "$(dirname "$0")/../tools/script.sh"
. "$root/tools/packages.sh"
. "$root/tools/servers.sh"
cd "$root"

rounds=150 seconds=90 webRounds=20 residentRounds=100
case $#-${1-} in
    0-) ;;
    1---quick) rounds=30 seconds=30 webRounds=3 residentRounds=10 ;;
    *) wrong "it takes --quick or nothing" ;;
esac

need g++ cmake make libcjson-dev lighttpd curl valgrind wrk python3
build=$PWD/build-bench
# Without a run path, like the program on a switch: the run path of a build tree costs some twenty system calls.
compile "$build" all -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF -DCMAKE_SKIP_RPATH=ON
warnings=(-Wall -Wextra -Wshadow -Wconversion -Wformat=2)
cc -O2 "${warnings[@]}" bench/measure.c -o "$build/measure"
# Compiled and linked as the program is.
cc -O2 -fPIE -pie "${warnings[@]}" -Iplatform/include bench/floor.c -o "$build/floor" -Wl,-z,lazy -Wl,-z,relro \
    -L"$build/lib" -lopenclt -lproc_libs -lcjson
cc -O2 -fPIE -pie "${warnings[@]}" -Iplatform/include bench/resident_floor.c -o "$build/resident_floor" -Wl,-z,lazy \
    -Wl,-z,relro -L"$build/lib" -lopenclt

# The program is measured with its files in /tmp, as on a switch.
scratch
filesOf "$build"
[ "$files" = /tmp ] || fail "the program's files in /tmp belong to another user: remove them, or run this as their owner"
makeSession
export HTTP_SESSION=$token # never in a command's arguments, which other users can read
mapfile -t bare < <({ compgen -e; echo SWITCHING_SCRIPT; echo _; } | grep -vx HTTP_SESSION | sed 's/^/--unset=/')

# A switch for each length of list. Faults answer the list operations, as no switch has 4,096 VLANs to list. All ids
# have four digits, so that twice as many ids make a text twice as long.
lengths=(1024 2048 4096)
declare -A ids
for length in "${lengths[@]}"; do
    ids[$length]=$(for ((id = 0; id < length; id++)); do echo $((1000 + id % 3000)); done | paste -sd ,)
    printf '{"intf":1,"vidList":[%s]}' "${ids[$length]}" >"$run/body$length"
    startSwitch switch$length "$build"
    list=rpcclt_openapiDot1qSwPortTrunkAllowedVlanList
    "$build/vswitch" fault ${list}Get code=0 "vidList=${ids[$length]}" || fail "$(cat "$run/vswitch.log")"
    "$build/vswitch" fault ${list}Set code=0
done

names=(floor floorAgain plain read1024 read2048 read4096 write1024 write2048 write4096)

listPath=vlan/dot1q-sw-port-trunk-allowed-vlan-list
success='"resp":{"respCode":0,"respMsg":"Success","status":"success"}'

# setRequest NAME: sets request (environment without the session, and command), input, and expected, the answer without white space.
setRequest()
{
    local length=${1//[!0-9]/} method=GET path=bridge/dot1d-stp-priority query="" data='"bridge":{"priority":32768},'
    local command=("$build/switching_v2.cgi")
    input=/dev/null
    case $1 in
        floor*) command=("$build/floor") ;;
        read*) path=$listPath query=intf=1 data="\"vlan\":{\"vidList\":[${ids[$length]}]}," ;;
        write*) path=$listPath method=PUT input=$run/body$length data="" ;;
    esac
    request=(PATH=/usr/bin:/bin "OPENCLT_SOCKET=$run/switch${length:-4096}" REQUEST_METHOD=$method
             "REQUEST_URI=/api/v2/switching/$path${query:+?$query}" "QUERY_STRING=$query"
             "CONTENT_LENGTH=$(stat -c %s "$input")" "LD_LIBRARY_PATH=$build/lib" "${command[@]}")
    expected="Content-Type:application/json{$data$success}"
}

# Every answer must be right before anything is measured.
for name in "${names[@]}"; do
    setRequest $name
    answer=$(env "${bare[@]}" "${request[@]}" <"$input" | tr -d ' \t\r\n')
    [ "$answer" = "$expected" ] || fail "$name answers ${answer:0:300}"
done

load=$(cut -d' ' -f1 /proc/loadavg)

echo "Measuring times" >&2
cases=()
for name in "${names[@]}"; do
    setRequest $name
    cases+=(-- $name "<$input" "${request[@]}")
done
attend "$build/measure" $rounds $seconds "${cases[@]}" >"$run/times"

echo "Counting instructions" >&2
for name in "${names[@]}"; do
    [ $name != floorAgain ] || continue
    setRequest $name
    attend timeout 60 env "${bare[@]}" "${request[@]::7}" valgrind --tool=callgrind \
        --callgrind-out-file="$run/$name.callgrind" "${request[@]:7}" <"$input" >/dev/null 2>"$run/$name.valgrind" ||
        fail "$name under callgrind: $(cat "$run/$name.valgrind")"
done
callgrind_annotate --inclusive=yes --threshold=100 "$run/plain.callgrind" >"$run/plain.annotated"

echo "Measuring rates" >&2
# The floor has a path like the program's, so that the web server does the same work for both.
startWebServer "$build" "$(anyPorts)" "\"LD_LIBRARY_PATH\" => \"$build/lib\"" "
alias.url += (\"/api/v2/floor/\" => \"$build/floor/\")
\$HTTP[\"url\"] =~ \"^/api/v2/floor(/|\$)\" { cgi.assign = (\"floor\" => \"\") }"
base=http://127.0.0.1:$port
echo "wrk.headers['Session'] = '$token'" >"$run/session.lua"
declare -A url=([floor]=$base/api/v2/floor/bridge/dot1d-stp-priority
                 [plain]=$base/api/v2/switching/bridge/dot1d-stp-priority)
resident=yes startWebServer "$build" "$(anyPorts)" "\"LD_LIBRARY_PATH\" => \"$build/lib\""
url[resident]=http://127.0.0.1:$port/api/v2/switching/bridge/dot1d-stp-priority
setRequest plain
for name in floor plain resident; do
    answer=$(curl -s -D - -o "$run/answer" -H "@$run/header" "${url[$name]}")
    [ "$(tr -d ' \t\r\n' <"$run/answer")" = "${expected#*json}" ] || fail "$name answers $answer"
done
for ((round = 0; round < webRounds; round++)); do
    for name in floor plain resident; do
        attend wrk -t 1 -c 4 -d 1s -s "$run/session.lua" "${url[$name]}" >"$run/wrk"
        ! grep -E 'Non-2xx|Socket errors' "$run/wrk" >&2 || fail "$name was not answered"
        sed -n 's|^Requests/sec: *||p' "$run/wrk" >>"$run/rates.$name"
    done
done
bench/resident.py "$build" $residentRounds "$run" >"$run/resident" # after the rates: it is printed last
bench/table.py "$run" "$load at the start, $(cut -d' ' -f1 /proc/loadavg) at the end"
cat "$run/resident"
