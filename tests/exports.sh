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
    # The load sequence is the one dynamic initialiser; the linker would choose the order of a second.
    initialisers=$("$1" "$2" | sed -n 's/.* t _GLOBAL__sub_I_//p' | grep -v '\.cold$' || true)
    [ "$initialisers" = Tessadrin.cpp ] || {
        echo "Dynamic initialisers, of which Tessadrin.cpp has the only one:" "$initialisers" >&2
        exit 1
    }
    ;;
*)
    sed -n 's/^# Usage:/Usage:/p' "$0" >&2
    exit 64
    ;;
esac
