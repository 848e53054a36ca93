# Shared by the scripts: where we are, what is installed, how much of the machine to use. Sourced, not run.
# shellcheck shell=bash

export LC_ALL=C.UTF-8
PATH=${PATH:-/usr/local/bin:/usr/bin:/bin}:/usr/local/sbin:/usr/sbin:/sbin
export PATH HOME=${HOME:-/root}

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc)

die() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

# packages_for quickstart|check: the names that scripts/packages lists for it.
packages_for() {
    awk -v who="$1" '$1 !~ /^#/ && NF && ($2 == "both" || $2 == who) { print $1 }' "$root/scripts/packages"
}

# install_packages quickstart|check: installs what is missing, without a question.
install_packages() {
    local package missing=() run=()
    for package in $(packages_for "$1"); do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    printf 'Installing %s\n' "${missing[*]}"
    if [ "$(id -u)" -ne 0 ]; then
        if ! sudo -n true 2>/dev/null; then
            die "these packages are missing: ${missing[*]}. Install them, or run this as root or with sudo."
        fi
        run=(sudo -n)
    fi
    run+=(env DEBIAN_FRONTEND=noninteractive apt-get -qq)
    "${run[@]}" update >/dev/null || die "apt-get update failed: is there a network?"
    "${run[@]}" install -y --no-install-recommends "${missing[@]}" >/dev/null </dev/null ||
        die "apt-get could not install: ${missing[*]}"
}

# build PRESET [TARGET...]: configures and builds; output only when it fails.
build() {
    local preset=$1 log
    shift
    log=$(mktemp)
    if (cd "$root" && cmake --preset "$preset" && ninja -C "build/$preset" -j "$jobs" "$@") >"$log" 2>&1; then
        rm -f "$log"
    else
        tail -n 60 "$log" >&2
        rm -f "$log"
        return 1
    fi
}

# our_files PATTERN...: the files of the tree that match, as git knows them, or as they lie.
our_files() {
    if git -C "$root" rev-parse --is-inside-work-tree >/dev/null 2>&1; then
        git -C "$root" ls-files --cached --others --exclude-standard -- "$@"
    else
        local pattern
        for pattern in "$@"; do
            (cd "$root" && find . -path ./build -prune -o -type f -name "$pattern" -print | sed 's|^\./||')
        done
    fi
}
