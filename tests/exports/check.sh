#!/bin/sh
# What a library exports, one name a line, and of each class its typeinfo alone; with "check", compares that with
# the list beside this script that is called after the library.
# To renew a list after a wanted change, from the top of the checkout:
#     tests/exports/check.sh nm build/dev/Proc/Wrappers/Tessadrin/libTessadrin.so > tests/exports/Tessadrin.txt
# Usage: check.sh NM LIBRARY [check]
set -eu
export LC_ALL=C

list() {
    echo "# The library's exported names; see check.sh."
    "$1" -D --defined-only -C "$2" |
        sed -e 's/^[0-9a-f]* [A-Za-z] //' -e '/^\(VTT\|vtable\|typeinfo name\) for /d' -e '/thunk to /d' -e 's/\[abi:cxx11\]//' \
            -e 's/std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >/std::string/g' |
        sort -u
}

case ${3-} in
'')
    list "$1" "$2"
    ;;
check)
    name=$(basename "$2") name=${name#lib} name=${name%%.*}
    list "$1" "$2" | diff -u "$(dirname "$0")/$name.txt" - || {
        echo "The exported names differ from $name.txt: - is missing from the library, + is new." >&2
        exit 1
    }
    [ "$name" = Tessadrin ] || exit 0
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
