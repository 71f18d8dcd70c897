# packages.sh - sourced: need PACKAGE... installs what is missing of these Debian packages. NAME:ARCHITECTURE is the
# package of another processor.

need()
{
    local missing=() foreign=() package native architecture as=()
    native=$(dpkg --print-architecture)
    for package; do
        architecture=$native # a plain name means this machine's, though another's may be installed
        case $package in *:*) architecture=${package#*:} ;; esac
        dpkg-query -W -f '${Architecture} ${Status}\n' "$package" 2>/dev/null |
            grep -Eq "^($architecture|all) .*ok installed" && continue
        missing+=("$package")
        [ "$architecture" = "$native" ] || foreign+=("$architecture")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || {
            echo "These packages are missing: ${missing[*]}. Run this as root once, or install them." >&2
            [ ${#foreign[@]} -eq 0 ] || echo "First: dpkg --add-architecture ${foreign[0]}, apt-get update." >&2
            return 1
        }
        as=(sudo)
    fi
    echo "Installing ${missing[*]}" >&2
    for architecture in "${foreign[@]}"; do "${as[@]}" dpkg --add-architecture "$architecture"; done
    "${as[@]}" apt-get update -qq >&2
    "${as[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
}
