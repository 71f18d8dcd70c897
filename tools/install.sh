#!/bin/bash
# install.sh PACKAGE... - installs these Debian packages, as root. It starts and enables none of their services, so none
# starts with the machine either. NAME:ARCHITECTURE is the package for another processor.
. "$(dirname "$0")/script.sh"

[ $# -gt 0 ] || wrong "which packages?"
[ "$(id -u)" = 0 ] || fail "only root can install packages"
for package; do
    case $package in *:*) dpkg --add-architecture "${package#*:}" ;; esac
done

# Debian's packages ask this program whether they may start a service. If there is one, the administrator made it.
policy=/usr/sbin/policy-rc.d
if [ ! -e $policy ]; then
    atEnd rm -f $policy
    printf '#!/bin/sh\nexit 101\n' >$policy
    chmod 755 $policy
fi
installed() { dpkg-query -W -f '${Package} ${db:Status-Status}\n' | sed -n 's/ installed$//p' | sort -u; }
scratch
installed >"$run/before"
echo "Installing $*"
# Another apt, say the machine's daily update, can hold the locks: wait up to ten minutes for it.
aptGet()
{
    local try
    for ((try = 0; try < 120; try++)); do
        if LC_ALL=C DEBIAN_FRONTEND=noninteractive apt-get "$@" >"$run/apt.log" 2>&1; then return; fi
        grep -Eq 'Could not get lock|Unable to (lock|acquire)' "$run/apt.log" || return 1
        [ $try != 0 ] || echo "Waiting for another apt to end" >&2
        sleep 5
    done
    return 1
}
aptGet update -qq || echo "apt-get could not update all its lists; it uses the old ones" >&2
aptGet install -y -qq --no-install-recommends "$@" || {
    cat "$run/apt.log"
    fail "apt-get could not install $*"
}
for package in $(installed | comm -13 "$run/before" -); do
    for file in $(dpkg -L "$package" | grep -E '^(/usr)?/lib/systemd/system/[^/]*\.[a-z]*$|^/etc/init\.d/'); do
        name=${file##*/}
        case $file in
            /etc/init.d/*) update-rc.d "$name" disable ;;
            *) ! command -v systemctl || systemctl disable "$name" ;;
        esac
    done >/dev/null 2>&1 || true
done
