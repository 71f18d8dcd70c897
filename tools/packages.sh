# packages.sh - sourced after script.sh: need PACKAGE... installs those of these Debian packages that are missing.
# NAME:ARCHITECTURE is the package for another processor.

need()
{
    local missing=() package native architecture
    native=$(dpkg --print-architecture)
    for package; do
        architecture=$native # a plain name is the package for this machine's processor
        case $package in *:*) architecture=${package#*:} ;; esac
        dpkg-query -W -f '${Architecture} ${Status}\n' "$package" 2>/dev/null |
            grep -Eq "^($architecture|all) .*ok installed" || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    if [ "$(id -u)" = 0 ]; then
        "$root/tools/install.sh" "${missing[@]}" >&2
    elif command -v sudo >/dev/null; then
        sudo "$root/tools/install.sh" "${missing[@]}" >&2
    else
        echo "Debian packages are missing. As root, once:" >&2
        for package in "${missing[@]}"; do
            case $package in *:*) echo "  dpkg --add-architecture ${package#*:}"; break ;; esac
        done >&2
        echo "  apt-get update && apt-get install --no-install-recommends ${missing[*]}" >&2
        echo "or, without starting their services: tools/install.sh ${missing[*]}" >&2
        exit 1
    fi
}
