#!/bin/sh
# What the library exports, one name a line, and of each class its typeinfo alone; with "check", compares that
# with exports.txt beside this script.
# To renew the list after a wanted change, from the top of the checkout:
#     tests/exports.sh nm build/dev/Proc/Wrappers/Tessadrin/libTessadrin.so > tests/exports.txt
# Usage: exports.sh NM LIBRARY [check]
set -eu
export LC_ALL=C

list() {
    echo "# The library's exported names; see exports.sh."
    "$1" -D --defined-only -C "$2" |
        sed -e 's/^[0-9a-f]* [A-Za-z] //' -e '/^\(VTT\|vtable\|typeinfo name\) for /d' -e 's/\[abi:cxx11\]//' \
            -e 's/std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >/std::string/g' |
        sort -u
}

case ${3-} in
'')
    list "$1" "$2"
    ;;
check)
    list "$1" "$2" | diff -u "$(dirname "$0")/exports.txt" - || {
        echo "The exported names differ from exports.txt: - is missing from the library, + is new." >&2
        exit 1
    }
    # The load sequence is the one dynamic initialiser; a second would be ordered by the linker.
    initialisers=$("$1" "$2" | grep -c ' t _GLOBAL__sub_I_' || true)
    [ "$initialisers" = 1 ] || {
        echo "The library has $initialisers dynamic initialisers instead of one:" >&2
        "$1" "$2" | grep ' t _GLOBAL__sub_I_' >&2
        exit 1
    }
    ;;
*)
    sed -n 's/^# Usage:/Usage:/p' "$0" >&2
    exit 64
    ;;
esac
