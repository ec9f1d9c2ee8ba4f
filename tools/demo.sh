#!/usr/bin/env bash
# tools/demo.sh BUILD_DIR [FILE...]: shows what the program makes of media files, read to their ends.
#
# FILEs are described at length. Without any, a table shows a set of files made on the spot, of every kind that
# FFmpeg can write and recognise, then the files in shared/media beside the checkout and in $TESSADRIN_MEDIA,
# where there are such folders; a summary names what did not work, and why.
#
# Exit code: for FILEs, the program's; for the made set, 0 when every file was recognised as what it is and read
# to its end. Files that were found may be of any kind, or broken: their failures are listed and change nothing.
set -euo pipefail

if (($# == 0)) || [[ ! -x $1/tools/tessadrin || ! -x $1/tools/tessadrin_demo_media ]]; then
    echo 'usage: tools/demo.sh BUILD_DIR [FILE...], with the target tessadrin_demo built in BUILD_DIR' >&2
    exit 64
fi
tools=$(cd -P "$1/tools" && pwd)
beside=$(cd -P "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)/shared/media
shift
(($# == 0)) || exec "$tools/tessadrin" probe --count "$@"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
now() { echo $((${EPOCHREALTIME/[.,]/} / 1000)); }

# show FOLDER: prints the table of its files; keeps it and the failures, a line each as "FILE: reason".
show() {
    local -r begin=$(now)
    cd "$1"
    : >"$work/failures"
    if "$tools/tessadrin" probe --table -- * >"$work/table"; then
        took=$(($(now) - begin))
    else
        took=$(($(now) - begin))
        # in a table a failure looks like any note; in the plain form they come on their own
        "$tools/tessadrin" probe --count -- * 2>"$work/failures" >/dev/null || true
    fi
    cd "$OLDPWD"
    cat "$work/table"
    files=$(($(wc -l <"$work/table") - 1))
}

# list TITLE LINE...: a title and indented lines; nothing without lines.
list() {
    (($# > 1)) || return 0
    printf '%s\n' "$1"
    printf '  %s\n' "${@:2}"
}

# The made set: rows of state, file, and format or reason.
mkdir "$work/made"
begin=$(now)
"$tools/tessadrin_demo_media" "$work/made" >"$work/made.tsv" || true  # what failed is in the rows
echo "Media drawn, played and written by FFmpeg in $(($(now) - begin)) ms:"
echo
show "$work/made"

declare -A format reason
while read -r file name _; do  # names without blanks: the first words are the first columns
    format[$file]=$name
done <"$work/table"
while IFS= read -r line; do
    reason[${line%%: *}]=$line
done <"$work/failures"
wrong=() refused=() stopped=() lacking=()
while IFS=$'\t' read -r outcome file text; do
    failure=${reason[$file]:-}
    if [[ $outcome == lacking ]]; then
        lacking+=("$file: this FFmpeg has $text")
    elif [[ $outcome == failed ]]; then
        wrong+=("$file: could not be made: $text")
    elif [[ ${format[$file]:-} != "$text" ]]; then
        wrong+=("$file: is $text, and was taken for '${format[$file]:-}'")
    elif [[ $outcome == refused && $failure == *'not read here' ]]; then
        refused+=("$failure")
    elif [[ $outcome == stopped && $failure == *'reading stopped after '[1-9]* ]]; then
        stopped+=("$failure")
    elif [[ $outcome != read || $failure ]]; then
        wrong+=("${failure:-$file: read, against expectation}")
    fi
done <"$work/made.tsv"
echo
echo "Made here: $((files - ${#wrong[@]} - ${#refused[@]})) of $files files recognised as what they are and read to the end, in $took ms."
list "Among these, ends that FFmpeg's demuxers take for errors:" "${stopped[@]}"
list 'Recognised, and refused as they should be:' "${refused[@]}"
list 'Not made:' "${lacking[@]}"
list 'Did not work:' "${wrong[@]}"

for folder in "$beside" "${TESSADRIN_MEDIA:-}"; do
    [[ -d $folder && ! $folder -ef ${shown:-} ]] || continue
    shown=$folder
    [[ ! -d $folder/files ]] || folder=$folder/files
    printf '\nMedia found in %s:\n\n' "$folder"
    show "$folder"
    mapfile -t failures <"$work/failures"
    echo
    echo "Found: $((files - ${#failures[@]})) of $files files recognised and read to the end, in $took ms."
    list 'Did not work:' "${failures[@]}"
done

# A conversion, with a picture to judge it by: the first and the last picture before and after it, above one another.
result=$(cd -P "$tools/.." && pwd)/demo
rm -rf "$result"
mkdir "$result"
cp "$work/made/h264-flac-srt.mkv" "$result/film.mkv"
printf '\nA film converted, and its first and last pictures before and after:\n\n'
"$tools/tessadrin" convert "$result/film.mkv" "$result/film.webm" --size 384x --frame-rate 50 --quality 20
for film in mkv webm; do
    "$tools/tessadrin" -q convert "$result/film.$film" "$work/$film%04d.ppm" --size 384x288
done
tiles=()
for which in 1 -1; do
    for film in mkv webm; do
        pictures=("$work/$film"*.ppm)
        tiles+=("${pictures[${which/#1/0}]}")
    done
done
{
    printf 'P6\n384 %d\n255\n' $((288 * ${#tiles[@]}))
    for tile in "${tiles[@]}"; do
        tail -c $((384 * 288 * 3)) "$tile"
    done
} >"$work/sheet.ppm"
"$tools/tessadrin" -q convert "$work/sheet.ppm" "$result/sheet.png"
printf '\nLook at %s: first before, first after, last before, last after.\n' "$result/sheet.png"
((${#wrong[@]} == 0))
