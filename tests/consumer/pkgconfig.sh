#!/bin/sh
# Builds an example with what pkg-config says, without a warning from the headers, and runs it: pkgconfig.sh PREFIX SOURCE ARGUMENT...
set -eu
prefix=$1 source=$2
shift 2
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name tessadrin.pc)")
export PKG_CONFIG_PATH
folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT
# shellcheck disable=SC2046  # its words are the compiler's arguments
c++ -std=c++20 -Wall -Wextra -Wpedantic -Wshadow -Werror "$source" -o "$folder/program" $(pkg-config --cflags --libs tessadrin)
LD_LIBRARY_PATH=$(pkg-config --variable=libdir tessadrin) "$folder/program" "$@"
