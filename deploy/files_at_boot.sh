#!/bin/sh
# files_at_boot.sh OWNER[:GROUP] - makes the files that switching_v2.cgi shares with the switch's other management programs:
# /tmp/session, /tmp/zt731.log and /tmp/devmgr_log_level. Run it as root at every boot, before the web server starts.
#
# OWNER is the user as whom the web server runs programs, for example www-data. Other programs that write the log belong to
# GROUP (default: the owner's group). Other users can read nothing of it: session names are secrets, and at level 7 the log
# contains them. All sessions end. A log that is not as it should be becomes the old log.
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

is_finished()
{
    [ -f "$1" ] && [ ! -L "$1" ] && [ "$(stat -c '%h %u %g %a' "$1")" = "1 $user $group 660" ]
}

# make FILE CONTENT: what another user put there is not followed, opened or changed.
make()
{
    if is_finished "$1"; then return; fi
    if [ -f "$1" ] && [ ! -L "$1" ] && [ "$1" = /tmp/zt731.log ]; then
        rm -rf "$1.old"
        mv "$1" "$1.old"
        [ "$(stat -c '%h %u' "$1.old")" != "1 0" ] || hand_over "$1.old"
    fi
    rm -rf "$1"
    (set -C && printf %b "$2" >"$1") || fail "another user makes $1 at the same time: run this before other users' programs"
    hand_over "$1"
}

rm -rf /tmp/session
mkdir -m 700 /tmp/session || fail "another user makes /tmp/session at the same time; run this before other users' programs"
chown "$user" /tmp/session
make /tmp/zt731.log ''
make /tmp/devmgr_log_level '6\0\0\0'
