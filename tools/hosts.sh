# hosts.sh - sourced after packages.sh and servers.sh: network namespaces as hosts on the virtual switch's ports, until
# the script ends.
# The eth0 of each host is the other end of its port. The REST server is behind port 0, the management port.

# cannotHaveHosts: prints in one line why there can be no hosts; fails when there can be some.
cannotHaveHosts()
{
    if [ "$(id -u)" != 0 ]; then
        echo "hosts are network namespaces and TAP interfaces, which only root may make"
    elif ! (: <>/dev/net/tun) 2>/dev/null; then
        echo "hosts need TAP interfaces: /dev/net/tun is missing or closed here (modprobe tun; a container must be given it)"
    elif ! unshare -nm true 2>/dev/null; then
        echo "hosts need network namespaces, which cannot be made here (in a chroot, for one)"
    else
        return 1
    fi
}

# plugHosts FIRST LAST: installs what hosts need, and sets plugs: the options with which the virtual switch makes an
# interface for each of these ports. When the switch ends, they are removed, also from another namespace.
plugHosts()
{
    local number
    need iproute2 iputils-ping
    plugs=()
    for ((number = $1; number <= $2; number++)); do
        [ ! -e "/sys/class/net/vsw-$number" ] || fail "there is an interface vsw-$number already: remove it"
        plugs+=(--plug "$number=tap:vsw-$number")
    done
}

# makeNamespace NAME
makeNamespace()
{
    [ ! -e "/run/netns/$1" ] || fail "there is a network namespace $1 already; remove it (ip netns del $1)"
    atEnd ip netns del "$1"
    ip netns add "$1"
    ip netns exec "$1" sh -c 'echo 1 >/proc/sys/net/ipv6/conf/all/disable_ipv6' 2>/dev/null || true # IPv6 sends frames by itself
    ip -n "$1" link set lo up
}

# makeHost NAME PORT ADDRESS [MAC [INTERFACE]]: a host on PORT. ADDRESS: IPv4, or "none". INTERFACE: its name there
# (eth0).
makeHost()
{
    [ -e "/run/netns/$1" ] || makeNamespace "$1"
    ip link set "vsw-$2" netns "$1" name "${5-eth0}"
    [ "${4-}" = "" ] || ip -n "$1" link set "${5-eth0}" address "$4"
    [ "$3" = none ] || ip -n "$1" address add "$3/24" dev "${5-eth0}"
    ip -n "$1" link set "${5-eth0}" up
}

# serveBehind NAME ADDRESS: starts another web server, with startWebServer's configuration, on the host NAME.
serveBehind()
{
    sed "s/^server.bind = .*/server.bind = \"$2\"/" "$run/lighttpd.conf" >"$run/lighttpd-$1.conf"
    launch ip netns exec "$1" lighttpd -D -f "$run/lighttpd-$1.conf" >"$run/lighttpd-$1.log" 2>&1
    untilServed ip netns exec "$1" curl -sI -o /dev/null --max-time 5 "http://$2:$port/" ||
        { cat "$run/lighttpd-$1.log" >&2; return 1; }
}

# serveHosts N: makes the hosts h1 to hN on ports 1 to N, and mgmt on the management port; mgmt has a web server.
serveHosts()
{
    local number
    makeHost mgmt 0 10.0.0.254 02:A0:C9:00:00:01
    for ((number = 1; number <= $1; number++)); do
        makeHost "h$number" "$number" "10.0.0.$number" "$(printf '02:00:00:00:00:%02X' "$number")"
    done
    serveBehind mgmt 10.0.0.254
}

# printHostsHelp: what a user can do with the hosts.
printHostsHelp()
{
    cat <<END

Hosts sit behind the ports: h1 (10.0.0.1) behind port 1, and so on; the REST server is at 10.0.0.254:$port for them.

  ip netns exec h1 ping 10.0.0.2
  curl -H "\$session" -d '' "\$base/vlan/create?vlanNum=10"
  curl -H "\$session" -X PUT -d '{"participationMode": 1}' "\$base/vlan/if-participation?vlanNum=10&ifNum=1"
  curl -H "\$session" -X PUT -d '{"vlanNum": 10}' "\$base/vlan/if-pvid?ifNum=1"       # it stops: h1 is in VLAN 10
  curl -H "\$session" -X PUT -d '{"vlanNum": 1}' "\$base/vlan/if-pvid?ifNum=1"        # it goes on
  $(printf %q "$build/vswitch") capture 1 | tcpdump -n -e -r -
END
}
