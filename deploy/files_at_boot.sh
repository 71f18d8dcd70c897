#!/bin/sh
# files_at_boot.sh OWNER[:GROUP] - makes the files that switching_v2.cgi shares with the switch's other management programs:
# /tmp/session, /tmp/zt731.log, /tmp/zt731.log.old and /tmp/devmgr_log_level. Run it as root at every boot, before the web
# server starts.
#
# OWNER is the user as whom the web server runs programs, for example www-data. Other programs that write the log belong to
# GROUP (default: the owner's group). Other users can read nothing of it: session names are secrets, and at level 7 the log
# contains them. All sessions end. A log of root or OWNER with another mode or group becomes the old log.
set -eu
umask 077

fail()
{
    echo "${0##*/}: $*" >&2
    exit 1
}

case ${1-} in
    --help | -h) awk 'NR > 1 { if (!sub(/^# ?/, "")) exit; print }' "$0"; exit 0 ;;
esac
[ $# = 1 ] || { echo "${0##*/}: it takes OWNER[:GROUP] (see --help)" >&2; exit 2; }
owner=${1%%:*}
user=$(id -u "$owner" 2>/dev/null) || { echo "${0##*/}: there is no user \"$owner\" (see --help)" >&2; exit 2; }
case $1 in
    *:*) group=$(awk -F: -v name="${1#*:}" '$1 == name { print $3 }' /etc/group) ;;
    *) group=$(id -g "$owner") ;;
esac
[ "$group" ] || { echo "${0##*/}: there is no group \"${1#*:}\" (see --help)" >&2; exit 2; }
[ "$(id -u)" = 0 ] || fail "only root can give files to another user"
case $(stat -c '%u %A' /tmp) in
    "0 "*[tT] | "0 "d???????-?) ;;
    *) fail "/tmp must belong to root and be sticky, or other users can replace the files: chmod 1777 /tmp" ;;
esac

# In a sticky directory other users can replace none of root's files: each keeps root as its owner until it is finished.
hand_over()
{
    chmod 660 "$1"
    chown "$user:$group" "$1"
}

kind_of()
{
    stat -c '%F: %h %u' "$1" 2>/dev/null | sed 's/regular empty file/regular file/'
}

# make FILE CONTENT: what another user put there is not followed, opened or changed.
make()
{
    rm -rf "$1"
    (set -C && printf %b "$2" >"$1") || fail "another user makes $1 at the same time: run this before other users' programs"
    hand_over "$1"
}

is_finished()
{
    [ "$(kind_of "$1") $(stat -c '%g %a' "$1" 2>/dev/null)" = "regular file: 1 $user $group 660" ]
}

rm -rf /tmp/session
mkdir -m 700 /tmp/session || fail "another user makes /tmp/session at the same time; run this before other users' programs"
chown "$user" /tmp/session
log=/tmp/zt731.log
if ! is_finished $log; then
    case $(kind_of $log) in
        "regular file: 1 0" | "regular file: 1 $user")
            rm -rf $log.old
            mv $log $log.old ;;
    esac
    make $log ''
fi
# The old log is made, too: in a sticky directory another user's could not be replaced when the log is rotated.
case $(kind_of $log.old) in
    "regular file: 1 $user") ;;
    "regular file: 1 0") hand_over $log.old ;;
    *) make $log.old '' ;;
esac
is_finished /tmp/devmgr_log_level || make /tmp/devmgr_log_level '6\0\0\0'
