# shellcheck shell=bash
# Shared by the scripts: sourced after `set -euo pipefail`, never run by itself.
#
# The comment at the head of a script is its help. The lines in it that begin with the script's name
# say which options it takes, and, by words in capitals, whether it takes more.

unset CDPATH
root=$(cd -- "$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")/.." && pwd)
list_packages=

# What both programs are built with.
# shellcheck disable=SC2034 # used by the scripts
build_packages=(g++ cmake make)

# Answers --help and --packages, and refuses what the script's help does not name.
check_arguments() {
    local help usage argument
    help=$(sed -n '2,/^$/s/^# \{0,1\}//p' "$0")
    usage=$(grep '^  ' <<<"$help") || true
    for argument in "$@"; do
        case $argument in
        --help)
            printf '%s\n' "$help" '' '  --help      shows this' \
                '  --packages  lists the Debian packages that are installed when they are missing'
            exit
            ;;
        --packages) list_packages=true ;;
        -*) [[ $usage =~ [\ \[]"$argument"([] ]|$) ]] || refuse "There is no option $argument" ;;
        *) [[ $usage =~ [A-Z]{3} ]] || refuse "It takes no '$argument'" ;;
        esac
    done
}

refuse() {
    echo "$1; $0 --help shows what there is." >&2
    exit 2
}

# Installs the Debian packages named that are missing, and does nothing when none is. The first step
# of a script: with --packages it is the last, too.
need_packages() {
    local missing apt=(apt-get -qq -o Dpkg::Use-Pty=0) install as_root=()
    if [[ $list_packages ]]; then
        printf '%s\n' "$@"
        exit
    fi
    missing=$(comm -23 <(printf '%s\n' "$@" | LC_ALL=C sort -u) <(installed "$@"))
    [[ $missing ]] || return 0

    mapfile -t missing <<<"$missing"
    install=(install -y --no-install-recommends "${missing[@]}")
    ((EUID == 0)) || as_root=(sudo)
    if ((EUID == 0)) || command -v sudo >/dev/null; then
        "${as_root[@]}" "${apt[@]}" update >/dev/null || true
        echo "Installing ${missing[*]} ($(to_fetch "${install[@]}")) ..." >&2
        "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive "${apt[@]}" "${install[@]}" >/dev/null &&
            return
    fi
    echo "Some packages are missing. Whoever may install them gets them with this line:" >&2
    echo "apt-get update && apt-get ${install[*]}" >&2
    return 1
}

# Those of the packages that are installed, sorted.
installed() {
    { dpkg-query -W -f='${db:Status-Abbrev}${Package}\n' "$@" 2>/dev/null || true; } |
        sed -n 's/^.i.//p' | LC_ALL=C sort -u
}

# How much an apt-get command would load.
to_fetch() {
    apt-get -qq --print-uris "$@" 2>/dev/null |
        awk '{ size += $3 } END { printf "%d packages to fetch, %.1f MB", NR, size / 1e6 }'
}

# git in a checkout that may be another user's. Fails where the sources are no checkout.
git_here() { git -c safe.directory="$root" -C "$root" "$@"; }

# build TARGET [DIRECTORY [CMAKE-OPTION...]]: configures and builds one target ("all" for
# everything) in a directory, by default build/ in the root of the repository.
build() {
    local target=$1 directory=${2:-$root/build}
    shift $(($# < 2 ? $# : 2))
    cmake -S "$root" -B "$directory" --log-level=WARNING "$@" >/dev/null
    cmake --build "$directory" --target "$target" --parallel "$(nproc)"
}

check_arguments "$@"
