#!/usr/bin/env bash
# host_row.sh WINE WRENKIT_EXE WRENKITS_DLL FOLDER alone|with-dll CODE REGEX [ARGS...]
# Runs a copy of wrenkit.exe in FOLDER (emptied first; with-dll: beside a copy of the DLL)
# and checks its exit code and its output (standard error, standard output, then the
# folder's QRB.log as "QRB.log: ..."), matched as one text against REGEX.
set -uo pipefail
wine=$1 exe=$2 dll=$3 folder=$4 place=$5 code=$6 regex=$7
shift 7
rm -rf "$folder"
mkdir -p "$folder"
cp "$exe" "$folder/wrenkit.exe"
[ "$place" = with-dll ] && cp "$dll" "$folder/Wrenkits.dll"
cd "$folder"
"$wine" "$folder/wrenkit.exe" "$@" >stdout.txt 2>stderr.txt </dev/null
got=$?
output=$(cat stderr.txt stdout.txt | tr -d '\r'; [ -f QRB.log ] && printf 'QRB.log: ' && tr -d '\r' <QRB.log)
printf 'wrenkit %s -> exit %s\n%s\n' "$*" "$got" "$output"
[ "$got" = "$code" ] || { echo "FAIL: exit code $got, expected $code"; exit 1; }
grep -Pzq -- "(?s)$regex" <<<"$output" || { echo "FAIL: output does not match: $regex"; exit 1; }
