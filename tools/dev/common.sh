# shellcheck shell=bash
# Shared by `dev` and `tools/dev/root`.

# Exit codes, those of sysexits.h; 77 is also what test runners take for "skipped".
# shellcheck disable=SC2034
readonly usageError=64 unavailable=69 cannotWrite=73 noSpace=75 notPermitted=77

say() { printf 'dev: %s\n' "$*" >&2; }
die() {
    local -r status=$1
    shift
    say "$@"
    exit "$status"
}

: "${checkout:?}"

# The packages of one set, a line each, without the remarks.
packagesOf() {
    local line
    while read -r line || [[ $line ]]; do
        line=${line%%[[:space:]#]*}
        [[ -z $line ]] || printf '%s\n' "$line"
    done <"$checkout/tools/dev/packages.$1"
}
