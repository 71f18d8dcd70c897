#!/bin/bash
# command.sh - the CGI program behind /console/vswitch: sends a command of the console to the virtual switch. serve.sh
# serves it; on a switch there is none. GET lists the faults; POST sends the command in the body. The environment:
# SESSIONS is the directory of the sessions, VSWITCH the program, OPENCLT_SOCKET its switch.
LC_ALL=C
[ "${1-}" != --help ] || { sed -n '2,4s/^# //p' "$0"; exit; }

answer() # STATUS TEXT
{
    printf 'Status: %s\r\nContent-Type: text/plain; charset=utf-8\r\nCache-Control: no-store\r\n\r\n%s\n' "$1" "$2"
    exit
}

# mayWrite TOKEN: whether it names a session that has not ended and whose user may write.
mayWrite()
{
    local file=$SESSIONS/$1 user='' stamp='' role='' uptime
    [[ $1 =~ ^[0-9a-f]{32}$ && -f $file && ! -L $file && -O $file ]] || return 1
    { read -r user; read -r stamp; read -r role; } <"$file"
    [ "$user" = admin ] || [ "${role:0:2}" = rw ] || return 1
    read -r uptime _ </proc/uptime
    [[ $stamp =~ ^[0-9]{1,12}$ ]] && ((10#$stamp == 0 || ${uptime%.*} - 10#$stamp <= 7200))
}

number='[0-9]{1,9}'
mac='[0-9A-Fa-f]{2}(:[0-9A-Fa-f]{2}){5}'
operation='(\*|rpcclt_openapi[A-Za-z0-9]{1,60})'
effect="(hangup|garbage|code=-?$number|delay=$number|times=$number|[A-Za-z0-9]{1,40}==?[A-Za-z0-9:._-]{1,60})"
allowed="link $number (up|down)|loop $number (on|off)|storm $number (unicast|broadcast|multicast) $number"
allowed+="|learn $number $mac $number|silence $number $mac|advance $number|hold|reset"
allowed+="|faults|clear( $operation)?|fault $operation( $effect){1,6}"

mayWrite "${HTTP_SESSION-}" || answer '403 Forbidden' 'this session may not send commands'
case $REQUEST_METHOD in
    GET) command=faults ;;
    POST)
        [[ ${CONTENT_LENGTH-} =~ ^[0-9]{1,3}$ ]] ||
            answer '413 Content Too Large' 'a command has fewer than 1000 bytes'
        IFS= read -r -N "$((10#$CONTENT_LENGTH))" command ;;
    *) answer '405 Method Not Allowed' 'only GET and POST' ;;
esac
[[ $command =~ ^($allowed)$ ]] || answer '400 Bad Request' 'no such command, or a wrong argument'
read -ra args <<<"$command"
if output=$(timeout 5 "$VSWITCH" "${args[@]}" 2>&1); then answer '200 OK' "$output"; fi
answer '400 Bad Request' "$output"
