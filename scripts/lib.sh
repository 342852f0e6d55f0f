# shellcheck shell=bash
# Shared by the scripts: sourced after `set -euo pipefail`, never run by itself.

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd)

# Installs the Debian packages named that are missing, and does nothing when none is.
need_packages() {
    local package state missing=() run=()
    for package in "$@"; do
        state=$(dpkg-query -W -f='${db:Status-Abbrev}' "$package" 2>/dev/null) || true
        [[ $state == ?i* ]] || missing+=("$package")
    done
    ((${#missing[@]})) || return 0

    if ((EUID != 0)); then
        if ! command -v sudo >/dev/null; then
            echo "These packages are missing, and only root can install them: ${missing[*]}" >&2
            return 1
        fi
        run=(sudo)
    fi
    run+=(env DEBIAN_FRONTEND=noninteractive apt-get -qq -o Dpkg::Use-Pty=0)
    echo "Installing ${missing[*]} ..." >&2
    "${run[@]}" update >/dev/null
    "${run[@]}" install -y --no-install-recommends "${missing[@]}" >/dev/null
}

# build TARGET [DIRECTORY [CMAKE-OPTION...]]: configures and builds one target ("all" for
# everything) in a directory, by default build/ in the root of the repository.
build() {
    local target=$1 directory=${2:-$root/build}
    shift $(($# < 2 ? $# : 2))
    cmake -S "$root" -B "$directory" --log-level=WARNING "$@" >/dev/null
    cmake --build "$directory" --target "$target" --parallel "$(nproc)"
}
