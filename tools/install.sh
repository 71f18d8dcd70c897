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
apt-get update -qq >"$run/update.log" 2>&1 || echo "apt-get could not update all its lists; it uses the old ones" >&2
DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "$@" >"$run/apt.log" 2>&1 || {
    cat "$run/update.log" "$run/apt.log"
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
