# shellcheck shell=bash
# Shared by `dev` and `tools/dev/root`.
: "${checkout:?}"

# Exit codes, those of sysexits.h; 77 is also what test runners take for "skipped".
# shellcheck disable=SC2034
usageError=64 unavailable=69 cannotWrite=73 noSpace=75 notPermitted=77

say() { printf 'dev: %s\n' "$*" >&2; }
die() {
    local -r status=$1
    shift
    say "$@"
    exit "$status"
}

# Puts the packages of the named sets, without the remarks, into the array `packages`.
readPackages() {
    local set line
    packages=()
    for set in "$@"; do
        while read -r line || [[ $line ]]; do
            line=${line%%[[:space:]#]*}
            [[ -z $line ]] || packages+=("$line")
        done <"$checkout/tools/dev/packages.$set"
    done
}

# True for root by grace of sudo in a checkout of the caller's: what is made there shall be the caller's.
calledBySudo() { ((EUID == 0 && ${SUDO_UID:-0})) && [[ $(stat -c %u "$checkout") == "$SUDO_UID" ]]; }
