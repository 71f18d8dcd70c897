# servers.sh - sourced: a virtual switch, and a web server in front of the program, for as long as a script runs. Their
# sockets, configuration and logs lie in the directory $run, which the script has made; $pids are their processes.

pids=()
PATH=$PATH:/usr/sbin:/sbin # Debian installs lighttpd where only root's search path leads

# startSwitch NAME BUILD [ARGUMENT...]: the socket is $run/NAME, and OPENCLT_SOCKET leads to it. Fails when it ends.
startSwitch()
{
    local build=$2 try
    export OPENCLT_SOCKET=$run/$1
    shift 2
    "$build/vswitch" "$@" >"$run/vswitch.log" 2>&1 &
    pids+=($!)
    for ((try = 0; try < 200; try++)); do
        [ ! -S "$OPENCLT_SOCKET" ] || return 0
        kill -0 "${pids[-1]}" 2>/dev/null || break
        sleep 0.05
    done
    cat "$run/vswitch.log" >&2
    return 1
}

# startWebServer BUILD PORTS ENVIRONMENT [CONFIGURATION]: serves BUILD's program on the first of the loopback PORTS that
# is free, and sets port. ENVIRONMENT is what the program gets besides, as lighttpd writes it: "NAME" => "VALUE", ...
startWebServer()
{
    local build try
    build=$(cd "$1" && pwd -P)
    for port in $2; do
        cat >"$run/lighttpd.conf" <<END
server.document-root = "$run"
server.bind = "127.0.0.1"
server.port = $port
server.modules = ("mod_setenv")
include "$build/switching_v2.conf"
setenv.set-environment = ("OPENCLT_SOCKET" => "$OPENCLT_SOCKET", $3)
${4-}
END
        lighttpd -D -f "$run/lighttpd.conf" >"$run/lighttpd.log" 2>&1 &
        pids+=($!)
        for ((try = 0; try < 200; try++)); do
            ! curl -s -o /dev/null --max-time 5 "http://127.0.0.1:$port/" || break
            kill -0 "${pids[-1]}" 2>/dev/null || break
            sleep 0.05
        done
        ! kill -0 "${pids[-1]}" 2>/dev/null || return 0
        unset 'pids[-1]'
    done
    cat "$run/lighttpd.log" >&2
    return 1
}

# Ports to try when any will do.
anyPorts()
{
    shuf -i 20000-32000 -n 20
}

stopServers()
{
    local pid
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
    pids=()
}
