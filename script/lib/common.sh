# shellcheck shell=bash
# Sourced by every script: where things are, how to speak, how to build.

set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
jobs=$(getconf _NPROCESSORS_ONLN)

say() { printf '%s==>%s %s\n' "${bold-}" "${plain-}" "$*"; }
fail() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}
# For a wrong command line: the reason, and where help is.
usage_error() {
    printf '%s: %s\nTry "%s --help".\n' "$(basename "$0")" "$*" "$0" >&2
    exit 2
}

if [[ -t 1 && -z ${NO_COLOR-} ]]; then
    bold=$'\e[1m' plain=$'\e[0m'
fi

# Prints the comment at the top of the calling script as its help.
print_help() { sed -n '2,/^[^#]/{s/^# \{0,1\}//p;}' "$0"; }

as_root() {
    if [[ $(id -u) == 0 ]]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        fail "installing packages needs root and there is no sudo; run as root: script/bootstrap"
    fi
}

bootstrap() { "$root/script/bootstrap" "$@"; }

# The folder that a preset of CMakePresets.json builds in.
build_folder() {
    if [[ $1 == release ]]; then echo "$root/build"; else echo "$root/build-$1"; fi
}

# configure PRESET [cmake argument...]; keeps quiet unless it fails.
configure() {
    local preset=$1 log
    shift
    if [[ -n ${CORVID_WARNINGS_ARE_ERRORS-} ]]; then
        set -- -DCMAKE_COMPILE_WARNING_AS_ERROR=ON "$@"
    fi
    if command -v ccache >/dev/null; then
        set -- -DCMAKE_CXX_COMPILER_LAUNCHER=ccache "$@"
    fi
    log=$(mktemp)
    if ! (cd "$root" && cmake --preset "$preset" "$@") >"$log" 2>&1; then
        cat "$log" >&2
        rm -f "$log"
        fail "cmake could not configure the $preset build; its message is above"
    fi
    rm -f "$log"
}

# build PRESET [target...]; says nothing when there is nothing to do.
build() {
    local folder
    folder=$(build_folder "$1")
    shift
    if ninja -C "$folder" -n "$@" | grep -q '^ninja: no work to do'; then
        return
    fi
    say "Building ${*:-everything} in ${folder#"$root"/}"
    ninja -C "$folder" -j "$jobs" "$@"
}

# The full path of a tool of LLVM 19, which Debian and Homebrew name differently.
tool_19() {
    if command -v "$1-19"; then
        return
    elif command -v brew >/dev/null && [[ -x $(brew --prefix)/opt/llvm@19/bin/$1 ]]; then
        echo "$(brew --prefix)/opt/llvm@19/bin/$1"
    else
        fail "$1 of LLVM 19 not found; run script/bootstrap lint"
    fi
}
