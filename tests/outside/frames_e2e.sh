#!/bin/bash
# frames_e2e.sh BUILD - tests the virtual switch with hosts in network namespaces on its ports, configured with curl:
# VLANs, a storm, a cable between two ports, an access list. As root. Where there can be no hosts, it prints why and ends
# with status 77.
. "$(dirname "$0")/../../tools/script.sh"
. "$root/tools/packages.sh"
. "$root/tools/servers.sh"
. "$root/tools/hosts.sh"
builtIn "${1-}" switching_v2.cgi vswitch lib/libsandbox.so
if why=$(cannotHaveHosts); then
    echo "skipped: $why"
    exit 77
fi

scratch
filesOf "$build" private
makeSession
x=swt$$- # prefix of the namespaces
plugHosts 0 4
startSwitch switch "$build" "${plugs[@]}"
startWebServer "$build" "$(anyPorts)" "$preload"
makeHost ${x}m 0 10.0.0.254 02:A0:C9:00:00:01
makeHost ${x}h1 1 10.0.0.1 02:00:00:00:00:01
makeHost ${x}h2 2 10.0.0.2 02:00:00:00:00:02
serveBehind ${x}m 10.0.0.254
base=http://10.0.0.254:$port/api/v2/switching

# check WHAT COMMAND...: prints WHAT if the command succeeds; ends the script if it fails.
check()
{
    "${@:2}" >"$run/output" 2>&1 || { cat "$run/output"; fail "this does not hold: $1"; }
    echo "$1"
}
not() { ! "$@"; }
pings() { ip netns exec "${x}h$1" ping -q -c 1 -W "${3-5}" "10.0.0.$2"; }
asks() { ip netns exec "${x}h1" curl -sf --max-time 5 -H "@$run/header" "$@" | tr -d ' \t\r\n'; }
answers() { [[ "$(asks "$2")" = *"$1"* ]]; }
# set_ METHOD TARGET BODY: through the loopback interface, which works whatever is configured.
set_() { curl -sf --max-time 5 -H "@$run/header" -X "$1" -d "$3" "http://127.0.0.1:$port/api/v2/switching/$2" | grep -q success; }
within() { # within SECONDS COMMAND...
    local try
    for ((try = 0; try < $1 * 10; try++)); do "${@:2}" && return 0; sleep 0.1; done
    return 1
}

check "h1 reaches h2" within 5 pings 1 2 1
check "h1 asks the switch through its port" answers '"numPorts":28' "$base/bridge/dot1d-base-num-ports"
set_ POST "vlan/create?vlanNum=10" ''
for port_ in 1 2; do
    check "h$port_ moves to VLAN 10" set_ PUT "vlan/if-participation?vlanNum=10&ifNum=$port_" '{"participationMode": 1}'
    set_ PUT "vlan/if-pvid?ifNum=$port_" '{"vlanNum": 10}'
    [ $port_ = 2 ] || check "h1 does not reach h2, which is in VLAN 1" not pings 1 2 1
done
check "h1 reaches h2 again" pings 1 2
for port_ in 1 2; do
    curl -sf -H "@$run/header" "http://127.0.0.1:$port/api/v2/switching/fdb/entry-next?vlanId=10&mac=02:00:00:00:00:0$((port_ - 1))" |
        tr -d ' \t\r\n' >"$run/entry"
    check "the address table names h$port_" grep -q "02:00:00:00:00:0$port_\",\"fdbIfNum\":$port_," "$run/entry"
done
for port_ in 1 2; do set_ PUT "vlan/if-pvid?ifNum=$port_" '{"vlanNum": 1}'; done

# A storm of 2000 broadcasts: h2 receives some, the port discards the others.
set_ PUT "storm-control/threshold?rateUnit=pps" '{"stormCtrlMode": "broadcast", "threshold": 100}'
set_ PUT storm-control/mode '{"stormCtrlMode": "broadcast", "state": "enable"}'
counter() { asks "$base/bridge/dot1d-tp-port-in-discards?port=1" | sed 's/.*inDiscards":\([0-9]*\).*/\1/'; }
got() { ip netns exec "${x}h2" cat /sys/class/net/eth0/statistics/rx_packets; }
knows() { ip -n "$x$1" neigh replace "10.0.0.$2" lladdr "$3" dev eth0 nud permanent; } # no ARP meanwhile
knows h1 254 02:A0:C9:00:00:01
knows h1 2 02:00:00:00:00:02
knows h2 1 02:00:00:00:00:01
knows m 1 02:00:00:00:00:01
before=$(($(counter) + $(got)))
ip netns exec "${x}h1" python3 - "$build/vswitch" <<'END'
import socket, subprocess, sys
wire = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
wire.bind(("eth0", 0))
for number in range(2000):
    wire.send(bytes.fromhex("ffffffffffff02000000000188b5") + bytes(46))
    if number % 200 == 199: # the queue of an interface holds some hundreds
        subprocess.run([sys.argv[1], "settle"], check=True)
END
discarded=$(counter)
check "of a storm of 2000, $(($(got) + discarded - before)) are received or discarded" [ $(($(got) + discarded - before)) = 2000 ]
check "and most are discarded ($discarded)" [ "$discarded" -gt 1000 ]
set_ PUT storm-control/mode '{"stormCtrlMode": "broadcast", "state": "disable"}'

# A cable from port 3 to port 4, with loop protection on both.
set_ PUT loop-protect/admin-mode '{"adminMode": 1}'
for port_ in 3 4; do
    set_ PUT "loop-protect/port-action?ifNum=$port_" '{"mode": 1}'
    set_ PUT "loop-protect/port-admin-mode?ifNum=$port_" '{"mode": 1}'
done
makeNamespace ${x}c
ip -n ${x}c link add cable type bridge
for port_ in 3 4; do makeHost ${x}c $port_ none "" eth$port_; ip -n ${x}c link set eth$port_ master cable; done
ip -n ${x}c link set cable up
carrier() { ip netns exec ${x}c cat /sys/class/net/eth3/carrier /sys/class/net/eth4/carrier | tr -d '\n'; }
shut() { [[ $(carrier) = 01 || $(carrier) = 10 ]]; }
check "a cable between two ports shuts one of them" within 5 shut
sleep 1
check "and only one" shut
check "h1 reaches h2 beside it" pings 1 2

# An end of the cable is deleted; a new interface takes its place.
cpuTime() { awk '{ print $14 + $15 }' "/proc/${pids[0]}/stat"; } # in ticks of 10 ms
saysOf() { grep -q "port $1: its interface vsw-$1 $2" "$run/vswitch.log"; }
ip -n ${x}c link del eth3
check "the switch says that an interface has gone" within 2 saysOf 3 "has gone"
before=$(cpuTime)
sleep 1
check "and uses no processor time for it" [ $(($(cpuTime) - before)) -lt 10 ]
ip tuntap add vsw-3 mode tap
atEnd sh -c 'ip link del vsw-3 2>/dev/null'
check "it takes the interface again" within 2 saysOf 3 "is back"
makeNamespace ${x}h3
makeHost ${x}h3 3 10.0.0.3 02:00:00:00:00:03
check "its host reaches h1" within 5 pings 3 1 1

# An access list that permits h1.
makeRule() { set_ POST "macal/$1" "{\"macalName\": \"mgmt\", \"macalRulePrio\": 1$2}"; }
set_ POST macal/list '{"macalName": "mgmt"}'
makeRule rule-entry ''
makeRule rule-action ', "action": "permit"'
makeRule rule-src-ip-mask ', "ipAddr": "10.0.0.1", "mask": "255.255.255.255"'
visits() { ip netns exec "${x}h$1" curl -s -o /dev/null --max-time 2 "$base/"; }
check "h2 comes through to the REST server" visits 2
check "the list is activated" set_ POST macal/activate '{"macalName": "mgmt"}'
check "h2 is cut off" not visits 2
"$build/vswitch" pass 60 # the counters are reported once a minute
check "h1 is not" answers '"filtPackets":' "$base/macal/stats-packets-filtered"
check "what was denied is counted" not answers '"filtPackets":0}' "$base/macal/stats-packets-filtered"
