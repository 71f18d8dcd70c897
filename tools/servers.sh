# servers.sh - sourced after script.sh: starts a virtual switch, and a web server in front of the program. Both run
# until the script ends. Their sockets, configuration and logs are in $run.

PATH=$PATH:/usr/sbin:/sbin # Debian installs lighttpd there, which is only in root's PATH

# untilServed COMMAND...: waits until the command succeeds. Fails after ten seconds, or when the process launched last
# has ended.
untilServed()
{
    local try
    for ((try = 0; try < 200; try++)); do
        if "$@"; then return 0; fi
        kill -0 "${pids[-1]}" 2>/dev/null || break
        sleep 0.05
    done
    return 1
}

# startSwitch NAME BUILD [ARGUMENT...]: starts BUILD's virtual switch. Its socket is $run/NAME; OPENCLT_SOCKET names it.
startSwitch()
{
    local build=$2
    export OPENCLT_SOCKET=$run/$1
    shift 2
    launch "$build/vswitch" "$@" >"$run/vswitch.log" 2>&1
    untilServed test -S "$OPENCLT_SOCKET" || { cat "$run/vswitch.log" >&2; return 1; }
}

# isServer TAG: whether the web server with that tag listens on the port.
isServer()
{
    curl -sI --max-time 5 "http://127.0.0.1:$port/" | grep "^Server: $1" >/dev/null
}

# residentConfiguration BUILD ENVIRONMENT: prints BUILD's configuration for the resident program, with a socket in $run.
residentConfiguration()
{
    local text start='"bin-environment" => ('
    text=$(sed "s|\"socket\" => \"[^\"]*\"|\"socket\" => \"$run/scgi\"|" "$1/switching_v2_resident.conf")
    printf '%s\n' "${text/"$start"/"$start\"OPENCLT_SOCKET\" => \"$OPENCLT_SOCKET\", $2, "}"
}

# startWebServer BUILD PORTS ENVIRONMENT [CONFIGURATION]: serves BUILD's program, and no files, on the first free one of
# the loopback PORTS, and sets port. ENVIRONMENT is added to the program's, in lighttpd's notation: "NAME" => "VALUE",
# ... If the variable resident is not empty, the program stays and serves by SCGI.
startWebServer()
{
    local build program tag=switching-$SRANDOM # distinguishes it from another server on that port
    build=$(cd "$1" && pwd -P)
    mkdir -p "$run/empty"
    program="include \"$build/switching_v2.conf\""
    [ ! "${resident-}" ] || program=$(residentConfiguration "$build" "$3")
    for port in $2; do
        cat >"$run/lighttpd.conf" <<END
server.document-root = "$run/empty"
server.bind = "127.0.0.1"
server.port = $port
server.tag = "$tag"
server.modules = ("mod_setenv", "mod_access")
server.upload-dirs = ("$run")
setenv.set-environment = ("OPENCLT_SOCKET" => "$OPENCLT_SOCKET", $3)
$program
server.breakagelog := "$run/breakage.log"
${4-}
END
        launch lighttpd -D -f "$run/lighttpd.conf" >"$run/lighttpd.log" 2>&1
        if untilServed isServer "$tag"; then return 0; fi
        kill "${pids[-1]}" 2>/dev/null || true
        unset 'pids[-1]'
    done
    cat "$run/lighttpd.log" >&2
    return 1
}

# consoleFor BUILD TOKEN...: prints a CONFIGURATION for startWebServer, which serves the console and, to these sessions
# alone, the switch's trace. (The trace grows: lighttpd must not cache its size.) Commands to the virtual switch go
# through command.sh, which checks the session and the command.
consoleFor()
{
    local tokens
    tokens=$(IFS='|'; echo "${*:2}")
    cat <<END
server.modules += ("mod_alias", "mod_cgi")
alias.url += ("/console/vswitch" => "$root/tools/command.sh", "/console/trace" => "$run/trace")
server.stat-cache-engine = "disable"
include "$1/switching_console.conf"
\$HTTP["url"] =~ "^/console/vswitch" {
    cgi.assign = ("command.sh" => "/bin/bash")
    server.max-request-size = 1
    setenv.set-environment = ("OPENCLT_SOCKET" => "$OPENCLT_SOCKET", "SESSIONS" => "$files/session",
        "VSWITCH" => "$(cd "$1" && pwd -P)/vswitch")
}
\$HTTP["url"] =~ "^/console/trace" {
    \$REQUEST_HEADER["Session"] !~ "^($tokens)\$" { url.access-deny = ("") }
}
END
}

# Prints ports to try when any port will do.
anyPorts()
{
    shuf -i 20000-32000 -n 20
}
